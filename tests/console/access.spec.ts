// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import type { Page } from "@playwright/test";
import { expect, test } from "./fixtures";

const axe = readFileSync(createRequire(import.meta.url).resolve("axe-core/axe.min.js"), "utf8");

/** What the rules of WCAG 2.1 AA find on the page as it is. */
async function faults(page: Page): Promise<string[]> {
    await page.evaluate(axe);
    return page.evaluate(async () => {
        const { axe: rules } = window as unknown as { axe: typeof import("axe-core") };
        const tags = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "best-practice"];
        const { violations } = await rules.run(document, { runOnly: tags });
        return violations.flatMap(({ id, nodes }) => nodes.map(({ html }) => `${id}: ${html}`));
    });
}

for (const colorScheme of ["light", "dark"] as const) {
    test.describe(colorScheme, () => {
        test.use({ colorScheme, serverOptions: ["--devices", "12", "--past", "20"] });

        test(`can be read and used by everyone, ${colorScheme}`, async ({ console, server }) => {
            await server.mark("gps2", "unreachable", "Connection refused");
            await server.mark("gps1", "lines-lost", "", 12);
            await server.say("gps1", "error: unable", "warning", "plain");
            await console.choose("gps1");
            await console.page.getByLabel("Search the lines", { exact: true }).fill("a");
            await console.row("error: unable").click();
            expect(await faults(console.page)).toEqual([]);
        });

        test(`so can its dialogues, ${colorScheme}`, async ({ console }) => {
            await console.page.getByRole("button", { name: "set that of gps1" }).click();
            expect(await faults(console.page)).toEqual([]);
            await console.page.keyboard.press("Escape");
            await console.page.getByRole("button", { name: "Go to time" }).click();
            expect(await faults(console.page)).toEqual([]);
            await console.page.keyboard.press("Escape");
            await console.page.getByRole("button", { name: "Keys" }).click();
            expect(await faults(console.page)).toEqual([]);
        });
    });
}

test("can be used by keys alone", async ({ console, server }) => {
    await server.say("gps1", "one", "two", "three");
    await expect(console.row("three")).toBeVisible();
    await console.page.keyboard.press("/");
    await expect(console.page.getByLabel("Search the lines", { exact: true })).toBeFocused();
    await console.list.focus();
    await console.page.keyboard.press("ArrowUp");
    await expect(console.row("two")).toHaveAttribute("aria-selected", "true");
    const active = await console.list.getAttribute("aria-activedescendant");
    await expect(console.page.locator(`#${active}`)).toContainText("two");
    await console.page.keyboard.press("ArrowDown");
    await expect(console.page.locator("#details-text")).toHaveText("three");
    await console.page.keyboard.press("d");
    await expect(console.page.getByLabel("Find a device")).toBeFocused();
    await console.page.keyboard.type("wind");
    await expect(console.page.locator("#devices li:visible")).toHaveCount(1);
    await console.page.keyboard.press("Tab");
    await console.page.keyboard.press("Tab");
});

test.describe("on a phone", () => {
    test.use({ viewport: { width: 390, height: 844 }, hasTouch: true });

    test("a finger that drags the lines stops them", async ({ console, server }) => {
        await server.say("gps1", ...Array.from({ length: 100 }, (_, index) => `line ${index}.`));
        await expect(console.row("line 99.")).toBeVisible();
        const session = await console.page.context().newCDPSession(console.page);
        const touch = (type: "touchStart" | "touchMove", y: number) =>
            session.send("Input.dispatchTouchEvent", { type, touchPoints: [{ x: 200, y }] });
        await touch("touchStart", 500);
        await touch("touchMove", 520);
        await touch("touchMove", 540);
        await expect(console.follow).toHaveText("Paused");
        await session.send("Input.dispatchTouchEvent", { type: "touchEnd", touchPoints: [] });
        await server.say("gps1", "a newer line");
        await expect(console.follow).toHaveText("Paused, 1 new");
    });

    test("everything has room on a phone", async ({ console, server }) => {
        await server.say("gps1", `a ${"long ".repeat(60)}line`);
        await expect(console.row("a long")).toBeVisible();
        const width = await console.page.evaluate(() => document.documentElement.scrollWidth);
        expect(width).toBe(390);
        await expect(console.page.locator("#sidebar")).toBeHidden();
        await console.page.getByRole("button", { name: "Devices" }).tap();
        await console.device("gps1").locator(".choice").tap();
        await expect(console.page).toHaveURL(/device=gps1/);
        expect(await faults(console.page)).toEqual([]);
    });
});
