// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { defineConfig } from "@playwright/test";

const out = process.env.OSX_TEST_OUT ?? "../../build/console";

export default defineConfig({
    testDir: ".",
    testMatch: "*.spec.ts",
    outputDir: `${out}/results`,
    timeout: 90_000,
    expect: { timeout: 30_000 },
    workers: 2,
    fullyParallel: true,
    reporter: [["list"], ["./totals.ts"]],
    use: {
        viewport: { width: 1440, height: 900 },
        locale: "en-GB",
        launchOptions: {
            executablePath: process.env.OSX_CHROMIUM ?? "/usr/bin/chromium",
            args: ["--disable-dev-shm-usage"],
        },
    },
});
