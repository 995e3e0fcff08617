"""What ZooKeeper and the nodes of a scratch cluster read: small, on loopback, all paths absolute."""
import hashlib
import os
from xml.sax.saxutils import escape

PASSWORD = "between collectors and nodes"
JARS = "/usr/share/java/zookeeper.jar:/usr/share/java/slf4j-simple.jar"


def xml(tag, inside):
    """An element: of a text, of a mapping of elements, or of a list of (tag, inside) where a tag comes again."""
    if isinstance(inside, dict):
        inside = inside.items()
    if not isinstance(inside, (str, int)):
        return f"<{tag}>" + "".join(xml(*one) for one in inside) + f"</{tag}>"
    return f"<{tag}>{escape(str(inside))}</{tag}>"


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


def users():
    loopback = {"networks": {"ip": "127.0.0.1"}, "profile": "default", "quota": "default"}
    # Deliberate: "default" stays without a password, since nodes forward some statements to their leader under that name.
    people = {"default": {"password": "", **loopback},
              "analytics": {"password_sha256_hex": hashlib.sha256(PASSWORD.encode()).hexdigest(), **loopback}}
    profile = {"max_memory_usage": 2_000_000_000, "max_threads": 2, "log_queries": 0, "background_pool_size": 2,
               "background_schedule_pool_size": 4}
    return xml("yandex", {"profiles": {"default": profile}, "users": people, "quotas": {"default": ""}})


def node(folder, ports, zookeeper_port):
    """Writes what a node reads; gives the words that start it. Ports: of HTTP, of its own protocol, between nodes."""
    data = f"{folder}/data"
    settings = {
        "logger": {"level": "information", "log": f"{folder}/log/node.log", "errorlog": f"{folder}/log/errors.log",
                   "size": "50M", "count": 2},
        "listen_host": "127.0.0.1", "http_port": ports[0], "tcp_port": ports[1],
        "interserver_http_port": ports[2], "interserver_http_host": "127.0.0.1",
        "path": f"{data}/", "tmp_path": f"{data}/tmp/", "user_files_path": f"{data}/user_files/",
        "format_schema_path": f"{data}/format_schemas/", "users_config": f"{folder}/users.xml",
        "default_profile": "default", "default_database": "default", "timezone": "UTC",
        "max_connections": 256, "keep_alive_timeout": 30, "max_concurrent_queries": 64,
        "uncompressed_cache_size": 0, "mark_cache_size": 67108864, "max_partition_size_to_drop": 0,
        "zookeeper": [("node", {"host": "127.0.0.1", "port": zookeeper_port}), ("session_timeout_ms", 4000)],
    }
    write(f"{folder}/users.xml", users())
    os.makedirs(f"{folder}/log", exist_ok=True)
    return ["clickhouse-server", "--config-file=" + write(f"{folder}/config.xml", xml("yandex", settings))]
