// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { test as base, Console, expect } from "./fixtures";
import { Gateway, RealConsole, Speaker } from "./programs";

/** The page as `osx console` serves it, with gateways, and a device that says what a test wants. */
const test = base.extend<{ gateways: Gateway[]; speaker: Speaker; real: RealConsole }>({
    // biome-ignore lint/correctness/noEmptyPattern: a fixture without others is written so.
    gateways: async ({}, use) => {
        const gateways = [new Gateway("gps1"), new Gateway("gps2")];
        await Promise.all(gateways.map((gateway) => gateway.start()));
        await use(gateways);
        await Promise.all(gateways.map((gateway) => gateway.end()));
    },
    // biome-ignore lint/correctness/noEmptyPattern: a fixture without others is written so.
    speaker: async ({}, use) => {
        const speaker = new Speaker("speaker");
        await speaker.start();
        await use(speaker);
        await speaker.stop();
    },
    real: async ({ gateways, speaker }, use) => {
        const real = new RealConsole([...gateways, speaker]);
        await real.start();
        await use(real);
        await real.end();
    },
    console: async ({ page, real }, use) => {
        const view = new Console(page);
        await view.open(real.url);
        await expect(page.locator("#summary")).toContainText("3 of 3 devices connected");
        await use(view);
        view.check(real.url);
    },
});

test("real: shows gateways, their lines and figures", async ({ console }) => {
    await expect(console.row("gateway: load and memory").first()).toBeVisible();
    await expect(console.page.locator("figcaption").nth(2)).toContainText("least free");
    await console.choose("gps2");
    await expect(console.row("gps2").first()).toBeVisible();
    await expect(console.row("gps1")).toHaveCount(0);
});

test("real: sets a level, and the device confirms it", async ({ console }) => {
    await console.page.getByRole("button", { name: "set that of gps1" }).click();
    const dialog = console.page.getByRole("dialog", { name: "Debug level of gps1" });
    await dialog.getByRole("radio").nth(3).check();
    await dialog.getByRole("button", { name: "Set level 3" }).click();
    await expect(dialog).toContainText("gps1 has level 3, and says:");
    await expect(dialog).toContainText("NewLogLevelData set the debug level to [3]");
    await dialog.getByRole("button", { name: "Close" }).click();
    await expect(console.device("gps1").locator(".level")).toHaveText("Level 3");
});

test("real: survives a device's restart", async ({ console, gateways }) => {
    await gateways[0]?.stop();
    await expect(console.page.locator("#summary")).toContainText("2 of 3 devices connected");
    await expect(console.device("gps1").locator(".choice")).toHaveAttribute(
        "title",
        /connection|not/,
    );
    await gateways[0]?.start();
    await expect(console.page.locator("#summary")).toContainText("3 of 3 devices connected");
});

test("real: goes on after a restart of the console, with the lines from before", async ({
    console,
    real,
    speaker,
}) => {
    speaker.say("said before the restart\n");
    await console.choose("speaker");
    await expect(console.row("said before the restart")).toBeVisible();
    await real.stop();
    await expect(console.page.getByRole("alert")).toBeVisible();
    await real.start();
    await expect(console.page.getByRole("alert")).toBeHidden();
    await expect(console.page.locator("#summary")).toContainText("3 of 3 devices connected");
    speaker.say("said after the restart\n");
    await expect(console.row("said after the restart")).toBeVisible();
    await expect(console.row("said before the restart")).toBeVisible();
});

test("real: searches, and reads back all that was said", async ({ console, speaker }) => {
    const lines = Array.from({ length: 3000 }, (_, index) => `number ${index + 1}, as said\n`);
    speaker.say(lines.join(""));
    await console.choose("speaker");
    await expect(console.row("number 3000, as said")).toBeVisible();
    await console.page.getByLabel("Search the lines", { exact: true }).fill("NUMBER 17, AS");
    await expect(console.row("number 17, as said")).toBeVisible();
    await expect(console.row("number 3000, as said")).toHaveCount(0);
    await console.page.getByLabel("Search the lines", { exact: true }).fill("");
    await expect(console.row("number 3000, as said")).toBeVisible();
    await console.page.keyboard.press("Escape");
    await console.list.focus();
    await expect(async () => {
        await console.page.keyboard.press("Home");
        await expect(console.row("number 1, as said")).toBeVisible({ timeout: 500 });
    }).toPass({ intervals: [50] });
});

test("real: shows hostile bytes as text", async ({ console, speaker }) => {
    speaker.say("<img src=x onerror=\"document.title='taken'\">\n");
    speaker.say(Buffer.from([0x1b, 0x5b, 0x32, 0x4a, 0xff, 0xfe, 0x00, 0x22, 0x5c, 0x0a]));
    speaker.say('"},{"id":1,"at":0,"device":"gps1","line":"made up"}\n');
    await console.choose("speaker");
    await expect(console.row("<img src=x onerror")).toBeVisible();
    await expect(console.row("\\x1b[2J\\xff\\xfe\\x00")).toBeVisible();
    await expect(console.row('"},{"id":1,"at":0')).toBeVisible();
    expect(await console.page.title()).toBe("osx console");
    expect(await console.page.locator("#lines img").count()).toBe(0);
});
