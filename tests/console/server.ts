// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { type ChildProcess, fork } from "node:child_process";
import { once } from "node:events";
import { fileURLToPath } from "node:url";

const program = fileURLToPath(new URL("fakeServer.mjs", import.meta.url));

/** A made-up server of the console, in a process of its own, that a test steers. */
export class FakeServer {
    private child: ChildProcess | null = null;
    private port = 0;
    private orders = 0;

    constructor(private readonly options: string[]) {}

    get url(): string {
        return `http://127.0.0.1:${this.port}/`;
    }

    /** Starts it; once more on the same port, as a person would. */
    async start(): Promise<void> {
        this.child = fork(program, ["--port", String(this.port), ...this.options], {
            stdio: ["ignore", "ignore", "inherit", "ipc"],
        });
        const [message] = (await once(this.child, "message")) as [{ port: number }];
        this.port = message.port;
    }

    async stop(): Promise<void> {
        if (this.child !== null && this.child.exitCode === null) {
            const ended = once(this.child, "exit");
            this.child.kill("SIGKILL");
            await ended;
        }
        this.child = null;
    }

    say(device: string, ...lines: string[]): Promise<void> {
        return this.order({ name: "say", device, lines });
    }

    mark(device: string, kind: string, text: string, count = 0): Promise<void> {
        return this.order({ name: "mark", device, kind, text, count });
    }

    rate(lines: number): Promise<void> {
        return this.order({ name: "rate", lines });
    }

    /** Devices confirm no level from now on. */
    mute(): Promise<void> {
        return this.order({ name: "mute" });
    }

    /** Ends the step of the figures that is under way. */
    endStep(): Promise<void> {
        return this.order({ name: "endStep" });
    }

    /** It ends all connections, and takes none. */
    hangUp(): Promise<void> {
        return this.order({ name: "hangUp" });
    }

    comeBack(): Promise<void> {
        return this.order({ name: "comeBack" });
    }

    /** It keeps its connections, and says nothing. */
    halt(): void {
        this.child?.kill("SIGSTOP");
    }

    goOn(): void {
        this.child?.kill("SIGCONT");
    }

    private async order(order: object): Promise<void> {
        const { child } = this;
        if (child === null) {
            throw new Error("the server is not running");
        }
        const number = ++this.orders;
        const done = new Promise<void>((resolve) => {
            const onMessage = (message: { done?: number }) => {
                if (message.done === number) {
                    child.off("message", onMessage);
                    resolve();
                }
            };
            child.on("message", onMessage);
        });
        child.send({ ...order, number });
        await done;
    }
}
