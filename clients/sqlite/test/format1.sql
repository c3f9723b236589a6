-- A store of format 1 without objects, as the programs of that time made it.
PRAGMA page_size = 16384;
PRAGMA journal_mode = WAL;
CREATE TABLE object(
    key BLOB PRIMARY KEY NOT NULL, content INTEGER NOT NULL, size INTEGER NOT NULL,
    modified INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE slice(
    content INTEGER NOT NULL, position INTEGER NOT NULL, size INTEGER NOT NULL,
    chunk INTEGER NOT NULL, start INTEGER NOT NULL, PRIMARY KEY(content, position)) WITHOUT ROWID;
CREATE INDEX slice_chunk ON slice(chunk);
CREATE TABLE chunk(id INTEGER PRIMARY KEY, bytes BLOB NOT NULL);
CREATE TABLE part(
    content INTEGER NOT NULL, number INTEGER NOT NULL, position INTEGER NOT NULL, size INTEGER NOT NULL,
    tag BLOB NOT NULL, PRIMARY KEY(content, position, number)) WITHOUT ROWID;
CREATE TABLE upload(id INTEGER PRIMARY KEY, key BLOB NOT NULL, touched INTEGER NOT NULL);
CREATE TABLE upload_part(
    upload INTEGER NOT NULL, number INTEGER NOT NULL, content INTEGER NOT NULL, size INTEGER NOT NULL,
    PRIMARY KEY(upload, number)) WITHOUT ROWID;
CREATE TABLE counter(last INTEGER NOT NULL);
INSERT INTO counter VALUES(0);
PRAGMA application_id = 0x434F424A;
PRAGMA user_version = 1;
