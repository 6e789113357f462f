// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

/** What the server sends. Times are milliseconds since 1970. */

export interface Line {
    id: number;
    at: number;
    device: string;
    line: string;
}

export interface Mark {
    id: number;
    at: number;
    device: string;
    mark: string;
    text: string;
    count: number;
}

export type Entry = Line | Mark;

export interface Figures {
    at: number;
    load: number;
    /** In kB. */
    memoryTotal: number;
    memoryFree: number;
}

export interface Device {
    name: string;
    host: string;
    port: number;
    levelPort: number;
    groups: string[];
    state: "connected" | "connecting";
    since: number;
    why: string;
    /** Lines a second. */
    rate: number;
    lines: number;
    lost: number;
    level: number | null;
    figures: Figures | null;
}

export interface State {
    version: string;
    now: number;
    limits: { ageS: number; bytes: number };
    devices: Device[];
    oldest: number;
    newest: number;
}

/** A batch of the stream; `skipped` entries stand in the history alone. */
export interface Lines {
    entries: Entry[];
    skipped: number;
}

export interface Devices {
    now: number;
    devices: Device[];
}

export interface History {
    entries: Entry[];
    more: boolean;
    /** The last entry that was looked at: a long search may end before it has found one. */
    reached?: number;
}

/** What came in the time of a step that ends at `at`. */
export interface FigurePoint {
    at: number;
    device: string;
    lines: number;
    lost: number;
    load: number | null;
    memoryFree: number | null;
    memoryTotal: number | null;
}

export interface FigureHistory {
    step: number;
    points: FigurePoint[];
}

export type LevelAnswer = { confirmed: true; line: string } | { confirmed: false; why: string };

export function isMark(entry: Entry): entry is Mark {
    return "mark" in entry;
}
