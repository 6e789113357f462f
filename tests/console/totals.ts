// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import type { Reporter, TestCase, TestResult } from "@playwright/test/reporter";

/** Counts the tests as `./check` reads it. */
export default class Totals implements Reporter {
    private passed = 0;
    private failed = 0;

    onTestEnd(_test: TestCase, result: TestResult): void {
        if (result.status === "passed") {
            ++this.passed;
        } else if (result.status !== "skipped") {
            ++this.failed;
        }
    }

    onEnd(): void {
        console.log(`${this.passed} passed, ${this.failed} failed`);
    }
}
