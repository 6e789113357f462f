// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { test as base, expect, type Locator, type Page } from "@playwright/test";
import { FakeServer } from "./server";

export { expect };

/** The page of the console as a person sees it. */
export class Console {
    readonly rows: Locator;
    readonly list: Locator;
    readonly follow: Locator;
    /** What the browser complained of: errors of scripts, and refusals by the policy. */
    readonly complaints: string[] = [];
    readonly requests: string[] = [];

    constructor(readonly page: Page) {
        this.list = page.getByRole("listbox", { name: "Lines" });
        this.rows = this.list.getByRole("option");
        this.follow = page.locator("#follow");
        page.on("pageerror", (error) => this.complaints.push(error.message));
        page.on("console", (message) => {
            // That a server is away the browser tells, too, and it is no fault of the page.
            if (message.type() === "error" && !message.text().includes("net::ERR_")) {
                this.complaints.push(message.text());
            }
        });
        page.on("request", (request) => this.requests.push(request.url()));
    }

    async open(url: string): Promise<void> {
        await this.page.goto(url);
        await expect(this.page.locator("#summary")).toContainText("connected");
    }

    /** It keeps to its server, and the browser has nothing to complain of. */
    check(url: string): void {
        expect(this.complaints).toEqual([]);
        const own = [new URL(url).origin, "data:"];
        expect(
            this.requests.filter((each) => !own.some((start) => each.startsWith(start))),
        ).toEqual([]);
    }

    row(text: string | RegExp): Locator {
        return this.rows.filter({ hasText: text, visible: true });
    }

    device(name: string): Locator {
        return this.page.locator("#devices li").filter({ hasText: name });
    }

    /** Shows only the lines of a device, or all again. */
    async choose(name: string): Promise<void> {
        await this.device(name).locator(".choice").click();
    }

    /** The rows in the window, from above; there are others above and below it. */
    async shown(): Promise<string[]> {
        return this.list.evaluate((list) => {
            const { top, bottom } = list.getBoundingClientRect();
            return [...list.querySelectorAll(".row:not([hidden])")]
                .map((row) => ({ place: row.getBoundingClientRect(), text: row.textContent ?? "" }))
                .filter(({ place }) => place.bottom > top + 1 && place.top < bottom - 1)
                .sort((one, other) => one.place.top - other.place.top)
                .map(({ text }) => text);
        });
    }
}

/** Generous: the machine may have ten times as much to do as it can. */
const kLongestStallMs = 3000;
const kMostHeap = 200 * 1024 * 1024;

interface Times {
    longestTask: number;
    longestGap: number;
    frames: number;
}

/** Measures how long the page stalls, and what memory it takes, from now on. */
export async function watchLoad(page: Page): Promise<{ check(title: string): Promise<void> }> {
    await page.evaluate(() => {
        const times = { longestTask: 0, longestGap: 0, frames: 0 };
        let last = performance.now();
        Object.assign(window, { times });
        new PerformanceObserver((list) => {
            for (const { duration } of list.getEntries()) {
                times.longestTask = Math.max(times.longestTask, duration);
            }
        }).observe({ entryTypes: ["longtask"] });
        const frame = (now: number) => {
            times.longestGap = Math.max(times.longestGap, now - last);
            last = now;
            ++times.frames;
            requestAnimationFrame(frame);
        };
        requestAnimationFrame(frame);
    });
    return { check: (title) => checkLoad(page, title) };
}

async function checkLoad(page: Page, title: string): Promise<void> {
    const { longestTask, longestGap, frames } = await page.evaluate(
        () => (window as unknown as { times: Times }).times,
    );
    const session = await page.context().newCDPSession(page);
    await session.send("HeapProfiler.collectGarbage");
    const { usedSize } = await session.send("Runtime.getHeapUsage");
    process.stdout.write(
        `notice: ${title}: longest task ${Math.round(longestTask)} ms, longest time between frames ` +
            `${Math.round(longestGap)} ms, ${frames} frames, heap ${(usedSize / 1048576).toFixed(1)} MiB\n`,
    );
    expect(longestTask).toBeLessThan(kLongestStallMs);
    expect(longestGap).toBeLessThan(kLongestStallMs);
    expect(usedSize).toBeLessThan(kMostHeap);
}

type Options = { serverOptions: string[] };
type Fixtures = { server: FakeServer; console: Console };

export const test = base.extend<Options & Fixtures>({
    serverOptions: [[], { option: true }],
    server: async ({ serverOptions }, use) => {
        const server = new FakeServer(serverOptions);
        await server.start();
        await use(server);
        await server.stop();
    },
    console: async ({ page, server }, use) => {
        const view = new Console(page);
        await view.open(server.url);
        await use(view);
        view.check(server.url);
    },
});
