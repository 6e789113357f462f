// SPDX-FileCopyrightText: 2026 The osx maintainers
// SPDX-License-Identifier: MIT

import { type ChildProcess, execFileSync, spawn, spawnSync } from "node:child_process";
import { once } from "node:events";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { type AddressInfo, createServer, type Server, type Socket } from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath } from "node:url";

const root = fileURLToPath(new URL("../..", import.meta.url));
const build = process.env.OSX_BUILD ?? join(root, "build/release");
const osx = join(build, "command/osx");

/** Whether the build has the program with its console. */
export function isBuilt(): boolean {
    return spawnSync(osx, ["console", "--help"], { encoding: "utf8" }).stdout?.includes(
        "--history",
    );
}

function freePort(): number {
    return Number(execFileSync("python3", [join(root, "tools/freeport.py")], { encoding: "utf8" }));
}

/** A program that runs until it is told to end. */
class Program {
    private child: ChildProcess | null = null;
    private text = "";

    constructor(
        private readonly file: string,
        private readonly options: string[],
        private readonly errors: "inherit" | "ignore" = "inherit",
    ) {}

    start(): void {
        this.text = "";
        this.child = spawn(this.file, this.options, { stdio: ["ignore", "pipe", this.errors] });
        this.child.stdout?.on("data", (bytes: Buffer) => {
            this.text = (this.text + bytes).slice(-4096);
        });
    }

    /** Waits for what the program says when it is ready. */
    async says(text: string): Promise<void> {
        while (!this.text.includes(text)) {
            const { child } = this;
            if (child?.stdout == null || child.exitCode !== null) {
                throw new Error(`${this.file} ended before it said '${text}'`);
            }
            await Promise.race([once(child.stdout, "data"), once(child, "exit")]);
        }
    }

    async stop(signal: NodeJS.Signals = "SIGTERM"): Promise<void> {
        const { child } = this;
        this.child = null;
        if (child !== null && child.exitCode === null && child.signalCode === null) {
            const ended = once(child, "exit");
            child.kill(signal);
            await ended;
        }
    }
}

/** What a console watches: its address, and how it begins and ends. */
export interface Watched {
    readonly name: string;
    readonly port: number;
    readonly levelPort: number;
    start(): Promise<void>;
    stop(): Promise<void>;
}

/** A gateway with its instrument. */
export class Gateway implements Watched {
    readonly port = freePort();
    readonly levelPort = freePort();
    private readonly instrument: Program;
    private readonly program: Program;

    constructor(readonly name: string) {
        const source = String(freePort());
        this.instrument = new Program(
            join(build, "examples/instrument/instrument"),
            [...["--port", source, "--interval", "50", "--corrupt", "20"]],
            "ignore",
        );
        this.program = new Program(
            join(build, "examples/gateway/gateway"),
            [
                ...["--source", `127.0.0.1:${source}`, "--port", String(freePort())],
                ...["--debug-port", String(this.levelPort), "-RedirectPort", String(this.port)],
                ...["--system-interval", "500", "--rate-interval", "100"],
            ],
            "ignore",
        );
        this.instrument.start();
    }

    async start(): Promise<void> {
        this.program.start();
    }

    async stop(): Promise<void> {
        await this.program.stop("SIGKILL");
    }

    async end(): Promise<void> {
        await this.stop();
        await this.instrument.stop("SIGKILL");
    }
}

/** A device that says whatever bytes a test wants it to. */
export class Speaker implements Watched {
    port = 0;
    private readonly server: Server;
    private readonly sockets = new Set<Socket>();

    constructor(readonly name: string) {
        this.server = createServer((socket) => {
            this.sockets.add(socket);
            socket.on("error", () => {});
            socket.on("close", () => this.sockets.delete(socket));
        });
    }

    get levelPort(): number {
        return this.port;
    }

    async start(): Promise<void> {
        this.server.listen(this.port, "127.0.0.1");
        await once(this.server, "listening");
        this.port = (this.server.address() as AddressInfo).port;
    }

    async stop(): Promise<void> {
        for (const socket of this.sockets) {
            socket.destroy();
        }
        this.server.close();
    }

    say(bytes: string | Buffer): void {
        for (const socket of this.sockets) {
            socket.write(bytes);
        }
    }
}

/** The console itself. */
export class RealConsole {
    private readonly folder = mkdtempSync(join(tmpdir(), "osx-console-"));
    private readonly port = freePort();
    private readonly program: Program;

    constructor(devices: Watched[]) {
        const lines = devices.map(
            ({ name, port, levelPort }) =>
                `  ${name}: {host: 127.0.0.1, port: ${port}, level-port: ${levelPort}}\n`,
        );
        const names = devices.map(({ name }) => name);
        const file = join(this.folder, "devices.yaml");
        writeFileSync(file, `devices:\n${lines.join("")}groups:\n  all: [${names.join(", ")}]\n`);
        this.program = new Program(osx, [
            ...["console", "--devices", file, "--listen", `127.0.0.1:${this.port}`],
            ...["--history", join(this.folder, "console.db"), "all"],
        ]);
    }

    get url(): string {
        return `http://127.0.0.1:${this.port}/`;
    }

    async start(): Promise<void> {
        this.program.start();
        await this.program.says("the console is at");
    }

    async stop(): Promise<void> {
        await this.program.stop();
    }

    async end(): Promise<void> {
        await this.program.stop("SIGKILL");
        rmSync(this.folder, { recursive: true });
    }
}
