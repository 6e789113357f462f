// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { defineConfig } from "@playwright/test";
import tests from "./playwright.config";

/** Makes the pictures of the page anew: `npm run pictures`. */
export default defineConfig({ ...tests, testMatch: "pictures.ts", workers: 1 });
