// Makes docs/images/page.png: a simulated radar, live, while it is recorded, with an older recording beside it.
//
//   KESTOVA_TOOL=build/release/tools/kestova node tests/page/screenshot.js [PALETTE] [FILE]

import { once } from "node:events";
import { mkdir } from "node:fs/promises";
import { fileURLToPath } from "node:url";
import { launch } from "./browser.js";
import { Workplace, cRadar, finish } from "./kestova.js";

const [, , palette = "dusk", file = fileURLToPath(new URL("../../docs/images/page.png", import.meta.url))] =
    process.argv;
const place = new Workplace();
await place.begin();
await mkdir(place.root);
const record = ["record", "--radars", place.radars, ...cRadar, "--root", place.root, "--quiet"];
const browser = await launch();
try {
    const first = place.start(...record);
    await once(place.simulate("--duration", "15"), "exit");
    await finish(first);
    const radar = place.simulate("--rate", "24", "--seed", "7");
    const second = place.start(...record);
    const { url } = await place.serve();
    const page = await browser.newPage({ viewport: { width: 1600, height: 1000 } });
    await page.goto(`${url}#live&palette=${palette}`);
    await page.waitForFunction(
        () => Number(document.getElementById("picture-a")?.dataset.spokes) > 3 * 4096,
        undefined,
        {
            timeout: 120000,
        },
    );
    await page.keyboard.press("Tab");
    await page.getByRole("img", { name: "Radar picture" }).click({ position: { x: 470, y: 190 } });
    await page.waitForTimeout(3000);
    await page.screenshot({ path: file });
    await finish(second);
    await finish(radar);
} finally {
    await browser.close();
    await place.end();
}
