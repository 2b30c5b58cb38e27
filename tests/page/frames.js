// How many pictures a second a live radar has at 900 x 900: `data-frames` over 5 s. Meant for a machine that does nothing else.
//
//   KESTOVA_TOOL=build/release/tools/kestova node tests/page/frames.js

import { mkdir } from "node:fs/promises";
import { launch } from "./browser.js";
import { Workplace } from "./kestova.js";

const cSeconds = 5;

const place = new Workplace();
await place.begin();
await mkdir(place.root);
const browser = await launch();
try {
    place.simulate("--rate", "24");
    const { url } = await place.serve();
    const page = await browser.newPage({ viewport: { width: 1600, height: 1300 } });
    await page.goto(`${url}#live&palette=dusk&size=900`);
    const facts = () => page.evaluate(() => ({ ...document.getElementById("picture-a")?.dataset }));
    await page.waitForFunction(() => Number(document.getElementById("picture-a")?.dataset.spokes) > 4096);
    const [began, before] = [performance.now(), await facts()];
    await page.waitForTimeout(cSeconds * 1000);
    const [took, after] = [(performance.now() - began) / 1000, await facts()];
    const rate = (Number(after.frames) - Number(before.frames)) / took;
    console.log(
        `${rate.toFixed(1)} pictures a second; the newest spoke was ${after.latencyMs} ms old when it was drawn`,
    );
} finally {
    await browser.close();
    await place.end();
}
