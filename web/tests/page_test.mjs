// node page_test.mjs PAGE PHOTOGRAPH PICTURES: the page in Chromium, from a file and without a network, with real
// clicks; screenshots go to the folder PICTURES.
import assert from "node:assert/strict";
import {mkdirSync} from "node:fs";
import {resolve} from "node:path";
import {pathToFileURL} from "node:url";

import {browser, openPage} from "./browser.mjs";

const [file, photograph, pictures] = process.argv.slice(2);
mkdirSync(pictures, {recursive: true});

await browser(async (chromium) => {
  for (const [name, options] of Object.entries({
         "1280-light": {width: 1280},
         "1280-dark": {width: 1280, dark: true},
         "390-light": {width: 390, height: 844},
         "390-dark": {width: 390, height: 844, dark: true},
       })) {
    const page = await openPage(chromium, pathToFileURL(resolve(file)).href, {...options, offline: true});
    const text = (id) => page.evaluate(`document.getElementById("${id}").textContent`);
    const bytes = async () => Number((await text("size")).replace(/\D/g, ""));
    // What follows a click: other figures.
    const changes = async (what, click) => {
      const before = await text("size");
      await click();
      await page.until(`document.getElementById("size").textContent !== ${JSON.stringify(before)}`);
      assert.equal(
          await page.evaluate(`document.getElementById("problem").hidden`), true, `${what}: ${await text("problem")}`);
      assert.match(await text("writing"), / ms$/);
      return bytes();
    };
    const select = (id, keys) => async () => {
      await page.evaluate(`document.getElementById("${id}").focus()`);
      for (const key of keys)
        for (const type of ["keyDown", "keyUp"])
          await page.call(
              "Input.dispatchKeyEvent", {type, key, code: key, windowsVirtualKeyCode: key === "ArrowDown" ? 40 : 38});
    };
    const tab = (kind, value) => `input[name="${kind}"][value="${value}"]`;

    await page.until(`document.getElementById("size").textContent.includes("bytes")`);
    const first = await bytes();
    assert.ok(await changes("quality", () => page.click("#quality", 0.95)) > first);
    assert.ok(await changes("quality", () => page.click("#quality", 0.1)) < first);
    await changes("sampling", select("sampling", ["ArrowUp", "ArrowUp"]));
    await page.click(tab("view", "inside"));
    assert.match(await text("words"), /coefficients are zero/);
    if (name.endsWith("light")) await page.screenshot(`${pictures}/${name}-inside.png`);
    await changes("JPEG 2000", () => page.click(tab("format", "jpeg2000")));
    await page.until(`document.getElementById("words").textContent.includes("wavelet levels")`);
    const low = await changes("rate", () => page.click("#rate", 0.1));
    assert.ok(await changes("rate", () => page.click("#rate", 0.9)) > low);
    await page.click("#levels", 0.9);
    await page.until(`document.getElementById("levelsShown").textContent > 3`);
    await changes("without loss", select("filter", ["ArrowDown"]));
    assert.equal(await text("psnr"), "exact");
    await changes("JPEG XR", () => page.click(tab("format", "jpegxr")));
    const bc1 = await changes("textures", () => page.click(tab("format", "texture")));
    await page.click(tab("view", "difference"));
    assert.ok(await changes("BC7", select("block", ["ArrowDown", "ArrowDown"])) > 1.9 * bc1);
    if (name.endsWith("dark")) await page.screenshot(`${pictures}/${name}-difference.png`);

    // Another photograph, dropped.
    await page.click(tab("view", "result"));
    await changes("JPEG", () => page.click(tab("format", "jpeg")));
    const data = {items: [], files: [resolve(photograph)], dragOperationsMask: 1};
    await changes("drop", async () => {
      for (const type of ["dragEnter", "dragOver", "drop"])
        await page.call("Input.dispatchDragEvent", {type, x: 200, y: 200, data});
    });
    assert.equal(await page.evaluate(`document.getElementById("original").width`), 1024);
    await page.click("#split", 0.7);
    assert.match(await page.evaluate(`document.getElementById("original").style.clipPath`), /inset\(0(px)? [23]\d/);
    await page.click("summary");
    await page.screenshot(`${pictures}/${name}.png`);
    assert.deepEqual(await page.faults(), []);
    await page.close();
    console.log(`${name}: good`);
  }
});
