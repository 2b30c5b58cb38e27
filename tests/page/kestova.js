// The program under test, and what it works on: a radar of this test's own in a folder of its own.

import { execFile, spawn } from "node:child_process";
import { once } from "node:events";
import { mkdtemp, readFile, rm, writeFile } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { createInterface } from "node:readline";
import { promisify } from "node:util";

const cTool = process.env.KESTOVA_TOOL ?? "";
const cExample = new URL("../../examples/radars.json", import.meta.url);
export const cRadar = ["--radar", "A1:2", "--id", "1", "--local-ip", "127.0.0.1"];

/** @typedef {import("node:child_process").ChildProcess} Child */

export class Workplace {
    /** @type {Child[]} */
    children = [];
    folder = "";

    get radars() {
        return join(this.folder, "radars.json");
    }

    get root() {
        return join(this.folder, "recordings");
    }

    async begin() {
        this.folder = await mkdtemp(join(tmpdir(), "kestova-page-"));
        // Groups of this process alone: tests run beside others.
        const net = `239.${200 + (process.pid % 50)}.${(process.pid >> 6) % 250}`;
        const directory = (await readFile(cExample, "utf8")).replaceAll("239.17.0", net);
        await writeFile(this.radars, directory);
    }

    /** Starts the program. @param {string[]} args @returns {Child} */
    start(...args) {
        const child = spawn(cTool, args, { stdio: ["ignore", "pipe", "inherit"] });
        this.children.push(child);
        return child;
    }

    /** Runs the program to its end and returns what it printed. @param {string[]} args */
    async run(...args) {
        return (await promisify(execFile)(cTool, args, { maxBuffer: 2 ** 28 })).stdout;
    }

    /** @param {string[]} more */
    simulate(...more) {
        return this.start(
            "simulate",
            "--radars",
            this.radars,
            ...cRadar,
            ...(more.includes("--rate") ? [] : ["--rate", "60"]),
            "--quiet",
            ...more,
        );
    }

    /** Serves at a port and returns the process and its address. @param {string[]} more */
    async serve(port = 0, ...more) {
        const child = this.start(
            ...["serve", "--root", this.root, "--radars", this.radars, "--local-ip", "127.0.0.1", "--json"],
            ...["--listen", `127.0.0.1:${port}`, "--allow-record", ...more],
        );
        const lines = createInterface({ input: /** @type {import("node:stream").Readable} */ (child.stdout) });
        const [line] = await once(lines, "line");
        return { child, url: JSON.parse(line).url };
    }

    async end() {
        for (const child of this.children) child.kill("SIGKILL");
        await rm(this.folder, { recursive: true, force: true });
    }
}

/** Ends a process in order. @param {Child} child */
export async function finish(child) {
    if (child.exitCode !== null || child.signalCode !== null) return;
    child.kill("SIGINT");
    await once(child, "exit");
}
