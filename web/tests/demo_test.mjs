// node demo_test.mjs PAGE PICTURES: the demonstration in Chromium, at the width of a phone and of a desk, light
// and dark.
import assert from "node:assert/strict";
import {mkdirSync} from "node:fs";
import {resolve} from "node:path";
import {pathToFileURL} from "node:url";

import {browser, openPage} from "./browser.mjs";

const [file, pictures] = process.argv.slice(2);
mkdirSync(pictures, {recursive: true});
await browser(async (chromium) => {
  for (const width of [390, 1280])
    for (const dark of [false, true]) {
      const page =
          await openPage(chromium, pathToFileURL(resolve(file)).href, {width, dark, height: 900, offline: true});
      const name = `${width}-${dark ? "dark" : "light"}`;
      const split = `getComputedStyle(document.querySelector("article .pair")).getPropertyValue("--split")`;
      await page.click("article input[type=range]", 0.8);
      assert.match(await page.evaluate(split), /^(7[5-9]|8[0-5])/);
      assert.ok(await page.evaluate("document.images.length") > 30);
      assert.deepEqual(await page.faults(), []);
      await page.screenshot(`${pictures}/${name}.png`);
      await page.close();
      console.log(`${name}: good`);
    }
});
