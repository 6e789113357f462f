// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { expect, test } from "./fixtures";

const kSeconds = 10;
const kRate = 5000;
/** Generous: the machine may have ten times as much to do as it can. */
const kLongestStallMs = 3000;
const kMostHeap = 200 * 1024 * 1024;

test.use({ serverOptions: ["--devices", "50"] });

test("keeps up with 50 devices and 5,000 lines a second", async ({ console, server, page }) => {
    await page.evaluate(() => {
        const times = { longestTask: 0, longestGap: 0, frames: 0, last: performance.now() };
        Object.assign(window, { times });
        new PerformanceObserver((list) => {
            for (const { duration } of list.getEntries()) {
                times.longestTask = Math.max(times.longestTask, duration);
            }
        }).observe({ entryTypes: ["longtask"] });
        const frame = (now: number) => {
            times.longestGap = Math.max(times.longestGap, now - times.last);
            times.last = now;
            ++times.frames;
            requestAnimationFrame(frame);
        };
        requestAnimationFrame(frame);
    });
    await server.rate(kRate);
    await expect(page.locator("#summary")).toContainText(/[1-9],\d{3} lines\/s/);
    const from = await newestShown(console.rows.last());
    await page.waitForTimeout(kSeconds * 1000);
    const to = await newestShown(console.rows.last());
    await server.rate(0);
    await server.say("gps1", "the last of all");
    await expect(console.row("the last of all")).toBeVisible();

    const times = await page.evaluate(
        () => (window as unknown as { times: Record<string, number> }).times,
    );
    const session = await page.context().newCDPSession(page);
    await session.send("HeapProfiler.collectGarbage");
    const { usedSize } = await session.send("Runtime.getHeapUsage");
    const { longestTask = 0, longestGap = 0, frames = 0 } = times;
    process.stdout.write(
        `notice: ${kRate} lines/s for ${kSeconds} s: longest task ${Math.round(longestTask)} ms, ` +
            `longest time between frames ${Math.round(longestGap)} ms, ${frames} frames, ` +
            `heap ${(usedSize / 1048576).toFixed(1)} MiB\n`,
    );
    expect(to).toBeGreaterThan(from);
    expect(longestTask).toBeLessThan(kLongestStallMs);
    expect(longestGap).toBeLessThan(kLongestStallMs);
    expect(usedSize).toBeLessThan(kMostHeap);
});

async function newestShown(row: import("@playwright/test").Locator): Promise<number> {
    return Number(await row.getAttribute("aria-posinset"));
}
