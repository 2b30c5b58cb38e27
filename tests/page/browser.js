// The browser of the tests: Debian's, without a window; its WebGL is computed by the processor.

import { existsSync } from "node:fs";
import { chromium } from "playwright-core";

const cPlaces = ["/usr/bin/chromium-headless-shell", "/usr/bin/chromium", "/usr/bin/chromium-browser"];

export function browserPath() {
    return cPlaces.find(path => existsSync(path));
}

export function launch() {
    const args = ["--no-sandbox", "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--ignore-gpu-blocklist"];
    return chromium.launch({ executablePath: browserPath(), args });
}
