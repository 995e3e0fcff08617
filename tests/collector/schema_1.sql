-- A store as the first version of its schema had it, with what these uploads left in it: a batch of an event and a line
-- that is none, a word of two lines dropped behind them, a text of two events. It is what later versions have to open,
-- so it never changes.
PRAGMA application_id=1634626681; PRAGMA user_version=1;
BEGIN TRANSACTION;
CREATE TABLE active_days(day INTEGER, kind INTEGER, chunk INTEGER, bits BLOB NOT NULL, PRIMARY KEY(day, kind, chunk))
    WITHOUT ROWID;
INSERT INTO "active_days" VALUES(20777,1,0,X'0100');
INSERT INTO "active_days" VALUES(20777,2,0,X'0100');
INSERT INTO "active_days" VALUES(20777,3,0,X'0200');
INSERT INTO "active_days" VALUES(20777,4,0,X'0200');
INSERT INTO "active_days" VALUES(20778,4,0,X'0200');
INSERT INTO "active_days" VALUES(20778,5,0,X'0200');
CREATE TABLE active_hours(hour INTEGER, kind INTEGER, chunk INTEGER, bits BLOB NOT NULL, PRIMARY KEY(hour, kind,
    chunk)) WITHOUT ROWID;
INSERT INTO "active_hours" VALUES(498658,2,0,X'0100');
INSERT INTO "active_hours" VALUES(498659,4,0,X'0200');
INSERT INTO "active_hours" VALUES(498683,4,0,X'0200');
CREATE TABLE batches(batch BLOB PRIMARY KEY, seen INTEGER NOT NULL, stored BLOB NOT NULL, told BLOB NOT NULL) WITHOUT
    ROWID;
INSERT INTO "batches" VALUES(X'42424242424242424242424242424242',20778,X'0002',X'050286B81E01');
CREATE TABLE blocks(block INTEGER PRIMARY KEY, first INTEGER NOT NULL, last INTEGER NOT NULL, received INTEGER NOT
    NULL);
INSERT INTO "blocks" VALUES(0,1795168800,1795258800,1795300000000);
CREATE TABLE counters(name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;
INSERT INTO "counters" VALUES('events',3);
INSERT INTO "counters" VALUES('last_event',3);
INSERT INTO "counters" VALUES('last_received_at',1795300001000);
INSERT INTO "counters" VALUES('rejects',1);
INSERT INTO "counters" VALUES('uploads',3);
CREATE TABLE ends(installation INTEGER PRIMARY KEY, seen INTEGER NOT NULL, list BLOB NOT NULL);
INSERT INTO "ends" VALUES(1,20778,X'020000003C0000007DAE8F1AA235C5107AA5BAFE032C989D');
CREATE TABLE events(id INTEGER PRIMARY KEY, upload INTEGER NOT NULL, line INTEGER NOT NULL, installation INTEGER NOT
    NULL, kind INTEGER NOT NULL, logged_at INTEGER NOT NULL, key INTEGER, members TEXT NOT NULL);
INSERT INTO "events" VALUES(1,1,0,1,1,1795168800,NULL,'{"os_name":"x","n":1}');
INSERT INTO "events" VALUES(2,2,0,2,3,1795172400,1208431045365444221,'{"n":2.5}');
INSERT INTO "events" VALUES(3,2,1,2,5,1795258800,-7090869217624676998,'{}');
CREATE TABLE fact_days(day INTEGER, kind INTEGER, property INTEGER, value INTEGER, chunk INTEGER, bits BLOB NOT NULL,
    PRIMARY KEY(day, kind, property, value, chunk)) WITHOUT ROWID;
INSERT INTO "fact_days" VALUES(20777,2,2,1,0,X'0100');
CREATE TABLE hours(hour INTEGER, kind INTEGER, events INTEGER NOT NULL, PRIMARY KEY(hour, kind)) WITHOUT ROWID;
INSERT INTO "hours" VALUES(498658,1,1);
INSERT INTO "hours" VALUES(498659,3,1);
INSERT INTO "hours" VALUES(498683,5,1);
CREATE TABLE installations(id INTEGER PRIMARY KEY AUTOINCREMENT, text TEXT NOT NULL UNIQUE);
INSERT INTO "installations" VALUES(1,'one');
INSERT INTO "installations" VALUES(2,'two');
CREATE TABLE installed(installation INTEGER, application INTEGER, first_seen INTEGER NOT NULL, last_seen INTEGER NOT
    NULL, version INTEGER NOT NULL, PRIMARY KEY(installation, application)) WITHOUT ROWID;
INSERT INTO "installed" VALUES(1,1,1795168800,1795168800,2);
INSERT INTO "installed" VALUES(2,1,1795172400,1795258800,5);
CREATE TABLE kinds(id INTEGER PRIMARY KEY AUTOINCREMENT, application INTEGER NOT NULL, version INTEGER NOT NULL, name
    INTEGER NOT NULL, counted INTEGER NOT NULL, UNIQUE(application, version, name));
INSERT INTO "kinds" VALUES(1,1,2,3,1);
INSERT INTO "kinds" VALUES(2,1,2,-1,0);
INSERT INTO "kinds" VALUES(3,1,5,6,3);
INSERT INTO "kinds" VALUES(4,1,5,-1,0);
INSERT INTO "kinds" VALUES(5,1,5,0,5);
CREATE TABLE losses(hour INTEGER, installation INTEGER, rejects INTEGER NOT NULL, dropped INTEGER NOT NULL, PRIMARY
    KEY(hour, installation)) WITHOUT ROWID;
INSERT INTO "losses" VALUES(498694,1,1,2);
CREATE TABLE properties(id INTEGER PRIMARY KEY AUTOINCREMENT, application INTEGER NOT NULL, name INTEGER NOT NULL,
    key TEXT, keys INTEGER NOT NULL DEFAULT 0, UNIQUE(application, name, key));
INSERT INTO "properties" VALUES(1,1,3,'os_name',0);
INSERT INTO "properties" VALUES(2,1,-1,'os_name',0);
INSERT INTO "properties" VALUES(3,1,3,'n',0);
INSERT INTO "properties" VALUES(4,1,6,'n',0);
CREATE TABLE property_days(day INTEGER, kind INTEGER, property INTEGER, counts BLOB NOT NULL, PRIMARY KEY(day, kind,
    property)) WITHOUT ROWID;
INSERT INTO "property_days" VALUES(20777,1,1,X'0101');
INSERT INTO "property_days" VALUES(20777,1,3,X'0101');
INSERT INTO "property_days" VALUES(20777,2,2,X'0101');
INSERT INTO "property_days" VALUES(20777,3,4,X'0101');
CREATE TABLE property_values(property INTEGER, number INTEGER, type INTEGER NOT NULL, text TEXT NOT NULL, PRIMARY
    KEY(property, number)) WITHOUT ROWID;
INSERT INTO "property_values" VALUES(1,1,0,'x');
INSERT INTO "property_values" VALUES(2,1,0,'x');
INSERT INTO "property_values" VALUES(3,1,1,'1');
INSERT INTO "property_values" VALUES(4,1,1,'2.5');
CREATE TABLE rejects(id INTEGER PRIMARY KEY AUTOINCREMENT, received_at INTEGER NOT NULL, installation INTEGER NOT
    NULL, line INTEGER NOT NULL, key INTEGER, reason TEXT NOT NULL, text TEXT NOT NULL);
INSERT INTO "rejects" VALUES(1,1795300000000,1,1,NULL,'column 1: expected "[ "','no event');
CREATE TABLE texts(id INTEGER PRIMARY KEY AUTOINCREMENT, text TEXT NOT NULL UNIQUE);
INSERT INTO "texts" VALUES(1,'app');
INSERT INTO "texts" VALUES(2,'1.0');
INSERT INTO "texts" VALUES(3,'launch');
INSERT INTO "texts" VALUES(4,'(other)');
INSERT INTO "texts" VALUES(5,'1.1');
INSERT INTO "texts" VALUES(6,'open');
CREATE TABLE uploads(id INTEGER PRIMARY KEY AUTOINCREMENT, received_at INTEGER NOT NULL, batch BLOB);
INSERT INTO "uploads" VALUES(1,1795300000000,X'42424242424242424242424242424242');
INSERT INTO "uploads" VALUES(2,1795300001000,NULL);
CREATE INDEX events_of_installation ON events(installation, logged_at);
CREATE INDEX rejects_received ON rejects(received_at);
INSERT INTO "sqlite_sequence" VALUES('texts',6);
INSERT INTO "sqlite_sequence" VALUES('kinds',5);
INSERT INTO "sqlite_sequence" VALUES('installations',2);
INSERT INTO "sqlite_sequence" VALUES('uploads',2);
INSERT INTO "sqlite_sequence" VALUES('properties',4);
INSERT INTO "sqlite_sequence" VALUES('rejects',1);
COMMIT;
