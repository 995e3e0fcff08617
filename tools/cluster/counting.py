"""Whether every event that a host's library took is counted exactly once: by rows, by the page, on each replica."""
import collections
import json
import urllib.parse
import urllib.request

# What a row says: of which installation, its number, and how many different events have that number.
ROWS = """SELECT installation, toUInt64OrZero(p.text[indexOf(p.key, 'n')]) AS number, uniqExact(batch, line)
 FROM events GROUP BY installation, number FORMAT TabSeparated"""


def get(url, body=None):
    with urllib.request.urlopen(url, data=body, timeout=120) as answer:
        return answer.read().decode()


def rows_of(port, database):
    """{installation: {number: times}} of one node."""
    found = collections.defaultdict(dict)
    for row in get(f"http://127.0.0.1:{port}/?database={database}&wait_end_of_query=1", ROWS.encode()).splitlines():
        installation, number, times = row.split("\t")
        found[installation][int(number)] = int(times)
    return found


class Tally:
    """What came of `accepted` events in one place."""

    def __init__(self, place):
        self.place, self.accepted, self.counted, self.lost, self.doubled = place, 0, 0, 0, 0
        self.missing = []

    def add(self, host, told, perhaps, found):
        """`found`: {number: times}. One of `perhaps` is accepted when it is there; any other that nobody logged counts
        as doubled."""
        accepted = set(told) | (perhaps & found.keys())
        lost = accepted - found.keys()
        self.accepted += len(accepted)
        self.counted += sum(found.values())
        self.lost += len(lost)
        self.doubled += sum(times - 1 for times in found.values()) + len(found.keys() - accepted)
        self.missing += [f"{host} {number}" for number in sorted(lost)]

    def add_count(self, accepted, counted):
        self.accepted += accepted
        self.counted += counted
        self.lost += max(0, accepted - counted)
        self.doubled += max(0, counted - accepted)

    def good(self):
        return self.accepted == self.counted and not self.lost and not self.doubled


def from_nodes(nodes, hosts, database):
    """A tally of the rows, from one replica of each shard, and one of each replica."""
    found = {one["name"]: rows_of(one["ports"][0], database) for one in nodes.plan["nodes"]}
    shards = collections.defaultdict(list)
    for one in nodes.plan["nodes"]:
        shards[one["shard"]].append(one["name"])
    home = {host: shard for shard, names in shards.items() for name in names for host in found[name]}
    whole = Tally("rows, over SQL")
    replicas = {name: Tally(f"replica {name}") for name in found}
    for host in hosts:
        told, merged = host.told(), collections.Counter()
        for names in shards.values():
            merged.update(found[names[0]].get(host.name, {}))
        whole.add(host.name, told, host.perhaps, merged)
        for name in shards.get(home.get(host.name), []):
            replicas[name].add(host.name, told, host.perhaps, found[name].get(host.name, {}))
    return [whole, *replicas.values()]


def from_page(port, hosts, rows, first_day, last_day):
    """What a collector's page shows, against what the rows said was accepted."""
    ask = lambda path, **more: json.loads(get(f"http://127.0.0.1:{port}{path}?" + urllib.parse.urlencode(
        {"from": first_day, "to": last_day, **more})))
    summary, table = ask("/api/summary"), ask("/api/installations", limit=10000)
    whole, each = Tally(f"page at {port}, summary"), Tally(f"page at {port}, installations")
    whole.add_count(rows.accepted, summary["events"])
    events = {row["installation"]: row["events"] for row in table["rows"]}
    each.add_count(rows.accepted, sum(events.values()))
    for host in hosts:
        told = len(host.told())
        if not told <= events.get(host.name, 0) <= told + len(host.perhaps):
            each.missing.append(f"{host.name} has {events.get(host.name, 0)} of {told}")
            each.lost += max(0, told - events.get(host.name, 0))
    for answer in (summary, table):
        if answer.get("partial"):
            whole.missing.append(f"partial: {answer['partial']}")
            whole.lost += 1
    return [whole, each]


def show(tallies):
    """Prints the table; gives whether all is well."""
    print(f"{'':32} {'accepted':>10} {'counted':>10} {'lost':>8} {'doubled':>8}")
    for one in tallies:
        print(f"{one.place:32} {one.accepted:10} {one.counted:10} {one.lost:8} {one.doubled:8}")
        for text in one.missing[:5]:
            print(f"    missing: {text}")
    rows = tallies[0]
    lost, doubled = max(one.lost for one in tallies), max(one.doubled for one in tallies)
    print(f"{rows.accepted} accepted, {rows.counted} counted, {lost} lost, {doubled} doubled")
    return rows.accepted > 0 and all(one.good() for one in tallies)
