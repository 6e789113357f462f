// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

// Writes index.html, app.js and app.css into the folder OSX_PAGE_OUT, or dist/.
import { copyFile, mkdir } from "node:fs/promises";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { build } from "esbuild";

const here = dirname(fileURLToPath(import.meta.url));
const out = process.env.OSX_PAGE_OUT ?? join(here, "dist");

await mkdir(out, { recursive: true });
await build({
    absWorkingDir: here,
    entryPoints: { app: "src/main.ts" },
    outdir: out,
    bundle: true,
    format: "esm",
    target: ["chrome111", "firefox113", "safari16"],
    minify: true,
    legalComments: "none",
    logLevel: "warning",
});
await build({
    absWorkingDir: here,
    entryPoints: { app: "src/app.css" },
    outdir: out,
    bundle: true,
    target: ["chrome111", "firefox113", "safari16"],
    minify: true,
    logLevel: "warning",
});
await copyFile(join(here, "src/index.html"), join(out, "index.html"));
