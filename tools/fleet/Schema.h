#pragma once

namespace NimaPost {

/// The tables of a database of devices, as doc/fleet.md describes them.
inline constexpr const char* kSchema = R"sql(
CREATE TABLE devices (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);

CREATE TABLE cases (
    id INTEGER PRIMARY KEY,
    device_id INTEGER NOT NULL REFERENCES devices,
    content TEXT NOT NULL,
    path TEXT NOT NULL,
    member TEXT NOT NULL,
    first TEXT,
    last TEXT,
    UNIQUE (device_id, content));

CREATE TABLE files (
    case_id INTEGER NOT NULL REFERENCES cases,
    name TEXT NOT NULL,
    kind TEXT NOT NULL,
    bytes INTEGER NOT NULL,
    events INTEGER NOT NULL,
    state TEXT NOT NULL,
    PRIMARY KEY (case_id, name)) WITHOUT ROWID;

CREATE TABLE boots (
    case_id INTEGER NOT NULL REFERENCES cases,
    boot INTEGER NOT NULL,
    first TEXT,
    last TEXT,
    processes INTEGER NOT NULL,
    PRIMARY KEY (case_id, boot)) WITHOUT ROWID;

CREATE TABLE processes (
    case_id INTEGER NOT NULL REFERENCES cases,
    process INTEGER NOT NULL,
    boot INTEGER,
    first TEXT,
    last TEXT,
    threads INTEGER NOT NULL,
    evidence TEXT NOT NULL,
    PRIMARY KEY (case_id, process)) WITHOUT ROWID;

CREATE TABLE crashes (
    id INTEGER PRIMARY KEY,
    device_id INTEGER NOT NULL REFERENCES devices,
    case_id INTEGER NOT NULL REFERENCES cases,
    signature TEXT NOT NULL,
    title TEXT NOT NULL,
    time TEXT,
    assumed INTEGER NOT NULL,
    boot INTEGER,
    process INTEGER,
    process_id INTEGER,
    code TEXT,
    file TEXT,
    line TEXT);
CREATE INDEX crashes_by_signature ON crashes (signature);

CREATE TABLE crash_marks (
    device_id INTEGER NOT NULL REFERENCES devices,
    mark TEXT NOT NULL,
    crash_id INTEGER NOT NULL REFERENCES crashes,
    PRIMARY KEY (device_id, mark)) WITHOUT ROWID;

CREATE TABLE case_crashes (
    case_id INTEGER NOT NULL REFERENCES cases,
    crash_id INTEGER NOT NULL REFERENCES crashes,
    PRIMARY KEY (case_id, crash_id)) WITHOUT ROWID;

CREATE TABLE frames (
    crash_id INTEGER NOT NULL REFERENCES crashes,
    frame INTEGER NOT NULL,
    line TEXT NOT NULL,
    function TEXT,
    foreign_module INTEGER NOT NULL,
    in_signature INTEGER NOT NULL,
    PRIMARY KEY (crash_id, frame)) WITHOUT ROWID;

CREATE TABLE counts (
    case_id INTEGER NOT NULL REFERENCES cases,
    kind TEXT NOT NULL,
    name TEXT NOT NULL,
    level TEXT NOT NULL,
    count INTEGER NOT NULL,
    PRIMARY KEY (case_id, kind, name, level)) WITHOUT ROWID;

CREATE TABLE findings (
    case_id INTEGER REFERENCES cases,
    path TEXT NOT NULL,
    damage INTEGER NOT NULL,
    code TEXT NOT NULL,
    sentence TEXT NOT NULL);
CREATE INDEX findings_by_case ON findings (case_id, path);

CREATE TABLE messages (
    id INTEGER PRIMARY KEY,
    level TEXT NOT NULL,
    name TEXT NOT NULL,
    text TEXT NOT NULL,
    UNIQUE (level, name, text));

CREATE TABLE case_messages (
    case_id INTEGER NOT NULL REFERENCES cases,
    process INTEGER NOT NULL,
    message_id INTEGER NOT NULL REFERENCES messages,
    count INTEGER NOT NULL,
    example TEXT,
    PRIMARY KEY (case_id, process, message_id)) WITHOUT ROWID;

CREATE TABLE crash_messages (
    crash_id INTEGER NOT NULL REFERENCES crashes,
    message_id INTEGER NOT NULL REFERENCES messages,
    PRIMARY KEY (crash_id, message_id)) WITHOUT ROWID;
)sql";

} // namespace NimaPost
