// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import type { Entry, History, Lines } from "./contract";
import type { Filter } from "./filter";
import { history, type Place, Refusal } from "./server";

/** Entries that only the history has, between the rows around it. */
export interface Gap {
    /** That of the entry in front of it. */
    id: number;
    at: number;
    /** How many, where that is known. */
    gap: number | null;
}

export type Row = Entry | Gap;

export function isGap(row: Row): row is Gap {
    return "gap" in row;
}

/** What the list has to know of changes. */
export interface FeedListener {
    /** Rows came or went; those that stay have moved down by so many rows. */
    moved(rows: number): void;
    /** All rows are others: the list stands at the first or the last one. */
    replaced(place: "first" | "last"): void;
    /** Following began or ended, or the number of unseen lines changed. */
    status(): void;
    trouble(text: string): void;
}

export const kMostRows = 50_000;
/** Rows beyond the limit that are bearable, so that they are cut in larger pieces. */
const kSlack = 1_000;
/** Pages that are read to catch up before the rest is left to the history. */
const kMostPages = 8;
/** Between two looks at the history for lines that pass the filter. */
const kPauseMs = 250;

const pause = (ms: number) => new Promise((resolve) => setTimeout(resolve, ms));

/**
 * The rows that are shown: a piece of the history that passes the filter, of bounded size, and mostly
 * its newest one. The server alone filters, so with a filter the stream only tells that there is more.
 */
export class Feed {
    rows: Row[] = [];
    isFollowing = true;
    /** Lines that came since following ended. */
    unseen = 0;

    private filter: Filter;
    /** The newest entry of the server. */
    private newest = 0;
    /** The rows are all that passes the filter from `begin` to `heeded`. */
    private begin = 0;
    private heeded = 0;
    /** Whether the rows end at the newest entry, and whether they begin at the oldest one. */
    private isAtEnd = false;
    private isAtStart = false;
    private isConnected = false;
    /** The newest entry that the stream told of while the rows were not yet compared with the server. */
    private announced = 0;
    /** Whether the rows are of this filter. */
    private isOpen = false;
    /** The server begins its numbers anew: the rows are of another history. */
    private isStale = false;
    private isCatchingUp = false;
    private isLoading = false;
    /** What was asked for before this changed no longer matters. */
    private era = new AbortController();

    constructor(
        filter: Filter,
        private readonly listener: FeedListener,
    ) {
        this.filter = filter;
    }

    /** Whether no newer entry is to be read. */
    get isAtNewest(): boolean {
        return this.isAtEnd;
    }

    /** Begins with the newest entries. */
    async open(filter: Filter): Promise<void> {
        this.filter = filter;
        this.isOpen = false;
        const upTo = this.newest;
        const page = await this.show({ before: upTo + 1 }, "last");
        if (page !== null) {
            this.isOpen = true;
            this.takeBegin(page, upTo);
            this.heeded = upTo;
            this.isAtEnd = true;
            this.isFollowing = true;
            this.unseen = 0;
            this.listener.status();
            await this.catchUp();
        }
    }

    disconnected(): void {
        this.isConnected = false;
        this.announced = 0;
    }

    /** The connection to the server is there, for the first time or again. */
    async connected(newest: number): Promise<void> {
        const last = this.rows.at(-1);
        const isKnown = this.isOpen && last !== undefined;
        const isSame = isKnown && (await this.has(last));
        this.isConnected = true;
        this.newest = Math.max(newest, this.announced);
        if (isSame && (this.isAtEnd || !this.isFollowing)) {
            await this.catchUp();
        } else if (!isKnown || this.isFollowing) {
            await this.open(this.filter);
        } else {
            this.isStale = true;
            this.isAtEnd = false;
            this.listener.trouble(
                "The server began a new history; these lines are of the old one.",
            );
        }
    }

    /** Takes what the stream brought. */
    take(lines: Lines, newest: number): void {
        if (!this.isConnected) {
            this.announced = newest;
            return;
        }
        const entries = lines.entries.filter((entry) => entry.id > this.heeded);
        const isLevel = this.heeded >= this.newest;
        this.newest = Math.max(this.newest, newest);
        if (!this.isFollowing && this.filter.isEmpty) {
            this.unseen += lines.entries.length + lines.skipped;
        }
        if (!this.filter.isEmpty || this.isCatchingUp || !isLevel) {
            void this.catchUp();
        } else if (this.isAtEnd) {
            this.takeDirectly(entries, lines.skipped);
        }
        this.listener.status();
    }

    follow(): void {
        if (this.isAtEnd && !this.isStale) {
            this.isFollowing = true;
            this.unseen = 0;
            this.listener.status();
            this.listener.moved(0);
            void this.catchUp();
        } else {
            void this.open(this.filter);
        }
    }

    /** Stands still; where entries were left out, they are read, up to the last row that is seen. */
    async pause(lastSeen: number): Promise<void> {
        if (!this.isFollowing) {
            return;
        }
        this.isFollowing = false;
        this.listener.status();
        if (this.rows.some(isGap)) {
            const page = await this.show({ before: lastSeen + 1 }, "last");
            if (page !== null) {
                this.takeBegin(page, lastSeen);
                this.heeded = lastSeen;
            }
        }
    }

    async older(): Promise<void> {
        if (this.isAtStart || this.isStale || this.begin === 0) {
            return;
        }
        await this.load({ before: this.begin }, (page) => {
            this.rows = [...page.entries, ...this.rows];
            this.takeBegin(page, this.begin - 1);
            this.cutEnd();
            this.listener.moved(page.entries.length);
        });
    }

    async newer(): Promise<void> {
        if (this.isAtEnd || this.isStale || this.begin === 0) {
            return;
        }
        const upTo = this.newest;
        await this.load({ after: this.heeded }, (page) => {
            this.takeEnd(page, upTo);
            this.append(page.entries);
        });
    }

    async jump(at: number): Promise<void> {
        const upTo = this.newest;
        this.isFollowing = false;
        this.listener.status();
        const page = await this.show({ at }, "first");
        if (page === null) {
            return;
        }
        this.begin = page.entries[0]?.id ?? upTo + 1;
        this.takeEnd(page, upTo);
        this.unseen = 0;
        this.listener.status();
        if (this.rows.length === 0) {
            this.listener.trouble("There is no line from that time on.");
            await this.open(this.filter);
        }
    }

    private takeDirectly(entries: Entry[], skipped: number): void {
        if (!this.isFollowing && (skipped !== 0 || this.rows.length >= kMostRows)) {
            this.isAtEnd = false;
            return;
        }
        const rows: Row[] = entries;
        if (skipped !== 0) {
            rows.unshift(this.gap(skipped));
        }
        this.heeded = this.newest;
        this.append(rows);
    }

    /** Behind the last row. */
    private gap(count: number | null): Gap {
        return { id: this.heeded, at: this.rows.at(-1)?.at ?? Date.now(), gap: count };
    }

    private append(rows: Row[]): void {
        for (const row of rows) {
            this.rows.push(row);
        }
        let cut = 0;
        if (this.rows.length > kMostRows + (this.isFollowing ? kSlack : 0)) {
            cut = this.rows.length - kMostRows;
            this.rows.splice(0, cut);
            this.begin = this.rows[0]?.id ?? 0;
            this.isAtStart = false;
        }
        this.listener.moved(-cut);
    }

    /** Reads what came behind the rows, until there is no more. */
    private async catchUp(): Promise<void> {
        if (this.isCatchingUp || !this.isAtEnd || this.isStale) {
            return;
        }
        this.isCatchingUp = true;
        const { signal } = this.era;
        try {
            let pages = 0;
            while (this.heeded < this.newest && this.isAtEnd) {
                pages = await this.catchUpByPage(pages, signal);
                if (!this.filter.isEmpty) {
                    await pause(kPauseMs);
                }
            }
        } catch (error) {
            this.complain(error, signal);
        } finally {
            this.isCatchingUp = false;
        }
        if (signal.aborted) {
            await this.catchUp();
        }
    }

    /** @return the number of pages in a row that did not reach the end. */
    private async catchUpByPage(pages: number, signal: AbortSignal): Promise<number> {
        const upTo = this.newest;
        const isTooFar = pages >= kMostPages;
        const place: Place = isTooFar ? { before: upTo + 1 } : { after: this.heeded };
        const page = await history(place, this.filter, signal);
        signal.throwIfAborted();
        if (!this.isFollowing && (isTooFar || this.rows.length >= kMostRows)) {
            this.isAtEnd = false;
            return pages;
        }
        const fresh: Row[] = page.entries.filter((entry) => entry.id > this.heeded);
        if (isTooFar && fresh.length !== 0) {
            fresh.unshift(this.gap(null));
        }
        const isBehind = page.more && !isTooFar;
        this.heeded = isBehind ? (endOf(page) ?? upTo) : Math.max(upTo, endOf(page) ?? 0);
        if (!this.isFollowing && !this.filter.isEmpty) {
            this.unseen += fresh.length;
            this.listener.status();
        }
        if (fresh.length !== 0) {
            this.append(fresh);
        }
        return isBehind ? pages + 1 : 0;
    }

    /** Shows another piece of the history. @return it, or null if something else is wanted by now. */
    private async show(place: Place, at: "first" | "last"): Promise<History | null> {
        this.era.abort();
        this.era = new AbortController();
        const { signal } = this.era;
        this.isAtEnd = false;
        try {
            const page = await history(place, this.filter, signal);
            signal.throwIfAborted();
            this.rows = page.entries;
            this.isStale = false;
            this.isAtStart = false;
            this.listener.replaced(at);
            return page;
        } catch (error) {
            this.complain(error, signal);
            return null;
        }
    }

    private takeBegin(page: History, end: number): void {
        const begin = page.reached || page.entries[0]?.id;
        this.isAtStart = !page.more || begin === undefined;
        this.begin = begin ?? end + 1;
    }

    private takeEnd(page: History, upTo: number): void {
        const end = endOf(page);
        this.isAtEnd = !page.more || end === undefined;
        this.heeded = this.isAtEnd ? Math.max(upTo, end ?? 0) : (end ?? upTo);
    }

    private cutEnd(): void {
        if (this.rows.length > kMostRows) {
            this.rows.length = kMostRows;
            this.heeded = this.rows.at(-1)?.id ?? 0;
            this.isAtEnd = false;
        }
    }

    private async load(place: Place, take: (page: History) => void): Promise<void> {
        if (this.isLoading) {
            return;
        }
        this.isLoading = true;
        const { signal } = this.era;
        try {
            const page = await history(place, this.filter, signal);
            signal.throwIfAborted();
            take(page);
        } catch (error) {
            this.complain(error, signal);
        } finally {
            this.isLoading = false;
        }
    }

    /** Whether the server still, or again, has what a row shows. */
    private async has(row: Row): Promise<boolean> {
        const { entries } = await history({ after: row.id - 1 }, this.filter);
        return entries[0]?.id === row.id && entries[0].at === row.at;
    }

    private complain(error: unknown, signal: AbortSignal): void {
        if (!signal.aborted && error instanceof Refusal) {
            this.listener.trouble(error.message);
        }
    }
}

/** @return how far a page that begins after an entry goes. */
function endOf({ reached, entries }: History): number | undefined {
    return reached || entries.at(-1)?.id;
}
