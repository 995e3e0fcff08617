"""What ZooKeeper and the nodes of a scratch cluster read: small, on loopback, all paths absolute.

A node reads the same files as a real one, collector/deploy/clickhouse, and behind them those of this machine."""
import hashlib
import os
import shutil
from xml.sax.saxutils import escape

PASSWORD = "between collectors and nodes"
DEPLOYED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "collector", "deploy", "clickhouse")
JARS = "/usr/share/java/zookeeper.jar:/usr/share/java/slf4j-simple.jar"


def xml(tag, inside):
    """An element of a text or of a mapping of elements. An element of a tag with "=" takes the place of a deployed one."""
    text = "".join(xml(*one) for one in inside.items()) if isinstance(inside, dict) else escape(str(inside))
    name = tag.rstrip("=")
    replaces = ' replace="replace"' if tag != name else ""
    return f"<{name}{replaces}>{text}</{name}>"


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    return path


def zookeeper(folder, port):
    """Writes its configuration; gives the words that start it."""
    settings = {"tickTime": 1000, "dataDir": f"{folder}/data", "clientPort": port, "clientPortAddress": "127.0.0.1",
                "admin.enableServer": "false", "4lw.commands.whitelist": "ruok,mntr", "maxClientCnxns": 0,
                "autopurge.snapRetainCount": 3, "autopurge.purgeInterval": 1}
    file = write(f"{folder}/zoo.cfg", "".join(f"{key}={value}\n" for key, value in settings.items()))
    return ["java", "-Xmx256m", "-cp", JARS, "org.apache.zookeeper.server.quorum.QuorumPeerMain", file]


def own_users():
    loopback = {"networks=": {"ip": "127.0.0.1"}}
    profile = {"max_memory_usage=": 2_000_000_000, "max_threads": 2, "background_schedule_pool_size": 4}
    return {"profiles": {"default": profile},
            "users": {"analytics": {"password_sha256_hex=": hashlib.sha256(PASSWORD.encode()).hexdigest(), **loopback},
                      "default": loopback}}


def own_settings(ports, zookeeper_port):
    return {
        "listen_host=": "127.0.0.1", "http_port": ports[0], "tcp_port": ports[1],
        "interserver_http_port": ports[2], "interserver_http_host=": "127.0.0.1",
        "zookeeper=": {"node": {"host": "127.0.0.1", "port": zookeeper_port}, "session_timeout_ms": 4000},
        "uncompressed_cache_size": 0, "mark_cache_size": 67108864,
    }


def node(folder, ports, zookeeper_port):
    """Writes what a node reads; gives the words that start it. Ports: of HTTP, of its own protocol, between nodes."""
    data = f"{folder}/data"
    settings = {
        "logger": {"level": "information", "log": f"{folder}/log/node.log", "errorlog": f"{folder}/log/errors.log",
                   "size": "50M", "count": 2},
        "path": f"{data}/", "tmp_path": f"{data}/tmp/", "user_files_path": f"{data}/user_files/",
        "format_schema_path": f"{data}/format_schemas/", "users_config": f"{folder}/users.xml",
        "default_profile": "default", "default_database": "default", "max_connections": 256,
    }
    nobody = {"password": "", "networks": {}, "profile": "default", "quota": "default"}
    users = {"profiles": {"default": {}}, "users": {"default": nobody},
             "quotas": {"default": ""}}
    for kind, all_have, own in [("users", users, own_users()), ("config", settings, own_settings(ports, zookeeper_port))]:
        write(f"{folder}/{kind}.xml", xml("yandex", all_have))
        write(f"{folder}/{kind}.d/scratch.xml", xml("yandex", own))
        shutil.copy(f"{DEPLOYED}/{kind}-18.16.xml", f"{folder}/{kind}.d/analytics.xml")
    os.makedirs(f"{folder}/log", exist_ok=True)
    return ["clickhouse-server", f"--config-file={folder}/config.xml"]
