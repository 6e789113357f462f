// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { defineConfig } from "@playwright/test";
import { isBuilt } from "./programs";

const out = process.env.OSX_TEST_OUT ?? "../../build/console";

// Worker processes read this, too.
const isReal = isBuilt();
if (!isReal && process.env.TEST_WORKER_INDEX === undefined) {
    console.log("notice: the build has no osx with a console: the tests with it are left out");
}

export default defineConfig({
    testDir: ".",
    testMatch: "*.spec.ts",
    testIgnore: isReal ? [] : "real*.spec.ts",
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
