// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { test as base, expect, type Locator, type Page } from "@playwright/test";
import { FakeServer } from "./server";

export { expect };

/** The page of the console as a person sees it. */
export class Console {
    readonly rows: Locator;
    readonly list: Locator;
    readonly follow: Locator;
    /** What the browser complained of: errors of scripts, and refusals by the policy. */
    readonly complaints: string[] = [];
    readonly requests: string[] = [];

    constructor(readonly page: Page) {
        this.list = page.getByRole("listbox", { name: "Lines" });
        this.rows = this.list.getByRole("option");
        this.follow = page.locator("#follow");
        page.on("pageerror", (error) => this.complaints.push(error.message));
        page.on("console", (message) => {
            // That a server is away the browser tells, too, and it is no fault of the page.
            if (message.type() === "error" && !message.text().includes("net::ERR_")) {
                this.complaints.push(message.text());
            }
        });
        page.on("request", (request) => this.requests.push(request.url()));
    }

    async open(url: string): Promise<void> {
        await this.page.goto(url);
        await expect(this.page.locator("#summary")).toContainText("connected");
    }

    row(text: string | RegExp): Locator {
        return this.rows.filter({ hasText: text, visible: true });
    }

    device(name: string): Locator {
        return this.page.locator("#devices li").filter({ hasText: name });
    }

    /** Shows only the lines of a device, or all again. */
    async choose(name: string): Promise<void> {
        await this.device(name).locator(".choice").click();
    }

    /** The rows in the window, from above; there are others above and below it. */
    async shown(): Promise<string[]> {
        return this.list.evaluate((list) => {
            const { top, bottom } = list.getBoundingClientRect();
            return [...list.querySelectorAll(".row:not([hidden])")]
                .map((row) => ({ place: row.getBoundingClientRect(), text: row.textContent ?? "" }))
                .filter(({ place }) => place.bottom > top + 1 && place.top < bottom - 1)
                .sort((one, other) => one.place.top - other.place.top)
                .map(({ text }) => text);
        });
    }
}

type Options = { serverOptions: string[] };
type Fixtures = { server: FakeServer; console: Console };

export const test = base.extend<Options & Fixtures>({
    serverOptions: [[], { option: true }],
    server: async ({ serverOptions }, use) => {
        const server = new FakeServer(serverOptions);
        await server.start();
        await use(server);
        await server.stop();
    },
    // Whatever a test does, the page keeps to its server, and the browser has nothing to complain of.
    console: async ({ page, server }, use) => {
        const view = new Console(page);
        await view.open(server.url);
        await use(view);
        expect(view.complaints).toEqual([]);
        const origin = new URL(server.url).origin;
        const strangers = view.requests.filter((url) => new URL(url).origin !== origin);
        expect(strangers.filter((url) => !url.startsWith("data:"))).toEqual([]);
    },
});
