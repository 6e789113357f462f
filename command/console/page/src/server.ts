// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import type { FigureHistory, History, LevelAnswer, State } from "./contract";
import type { Filter } from "./filter";

/** The server refused: the message is what it said. */
export class Refusal extends Error {
    constructor(
        readonly status: number,
        message: string,
    ) {
        super(message);
    }
}

/** Entries of one page of the history. */
export const kPage = 500;
/** The server waits up to 10 s for a device's answer; anything else comes at once. */
const kLimitMs = 30_000;

async function ask<T>(path: string, options: RequestInit = {}): Promise<T> {
    const answer = await fetch(path, { signal: AbortSignal.timeout(kLimitMs), ...options });
    const text = await answer.text();
    if (!answer.ok) {
        throw new Refusal(answer.status, complaint(text) || `status ${answer.status}`);
    }
    return JSON.parse(text) as T;
}

function complaint(text: string): string {
    try {
        const error: unknown = (JSON.parse(text) as { error?: unknown }).error;
        return typeof error === "string" ? error : "";
    } catch {
        return text.slice(0, 200);
    }
}

export function state(): Promise<State> {
    return ask("api/state");
}

/** Where a page of the history lies; without a place it is the newest one. */
export type Place = { before: number } | { after: number } | { at: number } | null;

export function history(place: Place, filter: Filter, signal?: AbortSignal): Promise<History> {
    const query = filter.query();
    query.set("limit", String(kPage));
    for (const [name, value] of Object.entries(place ?? {})) {
        query.set(name, String(value));
    }
    return ask(`api/history?${query}`, signal ? { signal } : {});
}

export function figures(since: number): Promise<FigureHistory> {
    return ask(`api/figures?since=${Math.round(since)}`);
}

export function setLevel(device: string, level: number, signal: AbortSignal): Promise<LevelAnswer> {
    return ask("api/level", {
        method: "POST",
        headers: { "Content-Type": "application/json", "X-Osx-Console": "1" },
        body: JSON.stringify({ device, level }),
        signal,
    });
}
