// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { fileURLToPath } from "node:url";
import { type Console, expect, test } from "./fixtures";
import type { FakeServer } from "./server";

const folder = fileURLToPath(new URL("../../docs/pictures", import.meta.url));

test.use({ serverOptions: ["--devices", "12", "--past", "20", "--rate", "24"] });

/** What a person sees who looks at a usual day. */
async function settle(console: Console, server: FakeServer): Promise<void> {
    await server.mark("sonar3", "unreachable", "Connection refused");
    await server.mark("wind1", "lines-lost", "", 312);
    await expect(console.page.locator("#summary")).toContainText(/11 of 12.*[1-9]\d* lost/);
    await expect(console.page.locator("canvas").first()).toHaveAttribute("aria-label", /losses/);
    await server.say("wind1", "31740 osxSocketSend: error 104, connection reset by peer");
    await server.say("gps2", "30101 $GPGGA,121847,5130.14,N,00007.63,W,1,08,0.9*45");
    await expect(console.row("$GPGGA,121847")).toBeVisible();
}

test.describe("light", () => {
    test("light", async ({ console, server }) => {
        await settle(console, server);
        await console.page.screenshot({ path: `${folder}/console.png` });
    });
});

test.describe("dark", () => {
    test.use({ colorScheme: "dark" });

    test("dark", async ({ console, server }) => {
        await settle(console, server);
        await console.choose("wind1");
        await console.choose("gps2");
        await console.follow.click();
        await expect(console.follow).toContainText("Paused");
        await console.row("error 104").last().click();
        await console.page.mouse.move(0, 0);
        await expect(console.page.locator("#details-text")).toBeVisible();
        await console.page.screenshot({ path: `${folder}/console-dark.png` });
    });
});

test.describe("phone", () => {
    test.use({ viewport: { width: 390, height: 844 }, deviceScaleFactor: 2, hasTouch: true });

    test("phone", async ({ console, server }) => {
        await settle(console, server);
        await console.page.screenshot({ path: `${folder}/console-phone.png` });
    });
});
