// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { expect, test, watchLoad } from "./fixtures";

const kRate = 5000;

test.use({ serverOptions: ["--devices", "50"] });

test("keeps up with 50 devices and 5,000 lines a second", async ({ console, server, page }) => {
    const load = await watchLoad(page);
    await server.rate(kRate);
    await expect(page.locator("#summary")).toContainText(/[1-9],\d{3} lines\/s/);
    await page.waitForTimeout(10_000);
    await server.rate(0);
    await server.say("gps1", "the last of all");
    await expect(console.row("the last of all")).toBeVisible();
    const count = Number(await console.rows.first().getAttribute("aria-setsize"));
    expect(count).toBeGreaterThan(kRate);
    await load.check(`${kRate} lines/s for 10 s, ${count} of them in the list`);
});
