// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { test as base, Console, expect, watchLoad } from "./fixtures";
import { RealConsole, Speaker } from "./programs";

const kDevices = 50;
const kRate = 5000;

/** `osx console` with 50 devices. */
const test = base.extend<{ speakers: Speaker[]; real: RealConsole }>({
    // biome-ignore lint/correctness/noEmptyPattern: a fixture without others is written so.
    speakers: async ({}, use) => {
        const speakers = Array.from({ length: kDevices }, (_, index) => new Speaker(`d${index}`));
        await Promise.all(speakers.map((speaker) => speaker.start()));
        await use(speakers);
        await Promise.all(speakers.map((speaker) => speaker.stop()));
    },
    real: async ({ speakers }, use) => {
        const real = new RealConsole(speakers);
        await real.start();
        await use(real);
        await real.end();
    },
});

test(`real: keeps up with ${kDevices} devices and ${kRate} lines a second`, async ({
    page,
    real,
    speakers,
}) => {
    const view = new Console(page);
    await view.open(real.url);
    await expect(page.locator("#summary")).toContainText(`${kDevices} of ${kDevices} devices`);
    const load = await watchLoad(page);
    let number = 0;
    const timer = setInterval(
        () => {
            for (const speaker of speakers) {
                const lines = Array.from(
                    { length: 10 },
                    () => `line ${++number}, as long as usual`,
                );
                speaker.say(`${lines.join("\n")}\n`);
            }
        },
        (1000 * 10 * kDevices) / kRate,
    );
    await page.waitForTimeout(10_000);
    clearInterval(timer);
    await load.check(`the program, ${number} lines in 10 s`);
    speakers[0]?.say("the last of all\n");
    await view.choose("d0");
    await expect(view.row("the last of all")).toBeVisible();
    view.check(real.url);
});
