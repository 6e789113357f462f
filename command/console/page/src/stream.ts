// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import type { Devices, Lines } from "./contract";

export interface StreamListener {
    opened(): void;
    lost(): void;
    lines(lines: Lines, newest: number): void;
    devices(devices: Devices): void;
}

/** The server sends the devices each second; one that is silent for so long is gone. */
const kSilentMs = 6_000;
const kFirstPauseMs = 500;
const kLongestPauseMs = 5_000;

/** The server's events; a connection that ends, or falls silent, is made anew. */
export class Stream {
    private source: EventSource | null = null;
    private silence = 0;
    private pauseMs = kFirstPauseMs;

    constructor(private readonly listener: StreamListener) {}

    open(): void {
        const source = new EventSource("api/events");
        this.source = source;
        source.addEventListener("open", () => {
            this.pauseMs = kFirstPauseMs;
            this.heard();
            this.listener.opened();
        });
        source.addEventListener("error", () => this.again());
        source.addEventListener("lines", (event) => {
            this.heard();
            const lines = JSON.parse(event.data) as Lines;
            this.listener.lines(lines, Number(event.lastEventId) || newestOf(lines));
        });
        source.addEventListener("devices", (event) => {
            this.heard();
            this.listener.devices(JSON.parse(event.data) as Devices);
        });
        this.heard();
    }

    /** Ends the connection, and makes another one after a pause. */
    again(): void {
        if (this.source === null) {
            return;
        }
        window.clearTimeout(this.silence);
        this.source.close();
        this.source = null;
        this.listener.lost();
        window.setTimeout(() => this.open(), this.pauseMs);
        this.pauseMs = Math.min(2 * this.pauseMs, kLongestPauseMs);
    }

    private heard(): void {
        window.clearTimeout(this.silence);
        this.silence = window.setTimeout(() => this.again(), kSilentMs);
    }
}

function newestOf(lines: Lines): number {
    return lines.entries.at(-1)?.id ?? 0;
}
