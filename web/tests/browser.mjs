// A page in headless Chromium, driven through its DevTools protocol over a pipe.
import {spawn} from "node:child_process";
import {mkdtempSync, rmSync, writeFileSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";

export async function browser(work) {
  const profile = mkdtempSync(join(tmpdir(), "qelj-page-"));
  const sandbox = process.getuid() === 0 ? ["--no-sandbox"] : [];
  const program = spawn(
      "chromium",
      [
        "--headless=new", "--remote-debugging-pipe", "--disable-gpu", "--hide-scrollbars", `--user-data-dir=${profile}`,
        "--no-first-run", ...sandbox, "about:blank"
      ],
      {stdio: ["ignore", "ignore", "ignore", "pipe", "pipe"]});
  const [, , , to, from] = program.stdio;
  const waiting = new Map(), listeners = [];
  let next = 0, rest = Buffer.alloc(0);
  from.on("data", (part) => {
    rest = Buffer.concat([rest, part]);
    for (let end; (end = rest.indexOf(0)) >= 0; rest = rest.subarray(end + 1)) {
      const message = JSON.parse(rest.subarray(0, end).toString());
      if (message.id) {
        const {resolve, reject} = waiting.get(message.id);
        waiting.delete(message.id);
        if (message.error) reject(new Error(message.error.message));
        else resolve(message.result);
      } else {
        for (const listener of listeners) listener(message);
      }
    }
  });
  const send = (method, params = {}, sessionId = undefined) => new Promise((resolve, reject) => {
    waiting.set(++next, {resolve, reject});
    to.write(`${JSON.stringify({id: next, method, params, sessionId})}\0`);
  });
  try {
    return await work({send, listen: (listener) => listeners.push(listener)});
  } finally {
    const gone = new Promise((resolve) => program.once("exit", resolve));
    await send("Browser.close").catch(() => program.kill());
    await gone;
    rmSync(profile, {recursive: true, force: true});
  }
}

// A page of its own at a width, light or dark. What it says on the console, and what fails, is in `messages`.
export async function openPage({send, listen}, url, {width = 1280, height = 900, dark = false, offline = false} = {}) {
  const {targetId} = await send("Target.createTarget", {url: "about:blank"});
  const {sessionId} = await send("Target.attachToTarget", {targetId, flatten: true});
  const call = (method, params) => send(method, params, sessionId);
  const messages = [];
  listen(({method, params, sessionId: of}) => {
    if (of !== sessionId) return;
    if (method === "Runtime.consoleAPICalled")
      messages.push(params.args.map((a) => a.value ?? a.description).join(" "));
    if (method === "Runtime.exceptionThrown")
      messages.push(params.exceptionDetails.exception?.description ?? "exception");
    if (method === "Log.entryAdded") messages.push(params.entry.text);
    if (method === "Network.loadingFailed") messages.push(`not loaded: ${params.errorText}`);
  });
  for (const domain of ["Page", "Runtime", "Log", "Network", "DOM"]) await call(`${domain}.enable`);
  if (offline)
    await call("Network.emulateNetworkConditions", {offline, latency: 0, downloadThroughput: 0, uploadThroughput: 0});
  await call("Emulation.setDeviceMetricsOverride", {width, height, deviceScaleFactor: 1, mobile: width < 600});
  await call(
      "Emulation.setEmulatedMedia", {features: [{name: "prefers-color-scheme", value: dark ? "dark" : "light"}]});
  const page = {
    messages,
    call,
    async evaluate(expression) {
      const {result, exceptionDetails} =
          await call("Runtime.evaluate", {expression, awaitPromise: true, returnByValue: true});
      if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
      return result.value;
    },
    async until(expression, seconds = 60) {
      for (const end = Date.now() + 1000 * seconds; Date.now() < end; await new Promise((r) => setTimeout(r, 50)))
        if (await page.evaluate(expression)) return;
      throw new Error(`never: ${expression}`);
    },
    // A click where the element is, after scrolling there; `x` from 0 to 1 across it.
    async click(selector, x = 0.5) {
      const box = await page.evaluate(`(() => {
        const e = document.querySelector(${JSON.stringify(selector)});
        e.scrollIntoView({block: "center", behavior: "instant"});
        const r = e.getBoundingClientRect();
        return {x: r.x, y: r.y, width: r.width, height: r.height};
      })()`);
      const where = {x: box.x + box.width * x, y: box.y + box.height / 2, button: "left", clickCount: 1};
      for (const type of ["mousePressed", "mouseReleased"]) await call("Input.dispatchMouseEvent", {type, ...where});
    },
    async screenshot(path) {
      await page.evaluate("window.scrollTo(0, 0)");
      const {cssContentSize: {height: whole}} = await call("Page.getLayoutMetrics");
      const {data} = await call(
          "Page.captureScreenshot", {captureBeyondViewport: true, clip: {x: 0, y: 0, width, height: whole, scale: 1}});
      writeFileSync(path, Buffer.from(data, "base64"));
    },
    // Nothing wider than the screen, every picture loaded and described, nothing said on the console.
    async faults() {
      const found = await page.evaluate(`(() => {
        const faults = [], wide = document.documentElement.scrollWidth;
        if (wide > ${width}) faults.push("the page is " + wide + " wide");
        for (const e of document.body.querySelectorAll("*"))
          if (e.getBoundingClientRect().right > ${width} + 0.5 && !e.closest(".scrolls")) faults.push(e.tagName + "." +
            e.className + " is wider than the screen");
        for (const i of document.images) {
          if (!i.complete || !i.naturalWidth) faults.push("not loaded: " + i.alt);
          if (!i.alt) faults.push("without words: " + i.src.slice(0, 60));
        }
        return faults;
      })()`);
      return [...found, ...messages];
    },
    close: () => send("Target.closeTarget", {targetId}),
  };
  await call("Page.navigate", {url});
  await page.until(`location.href !== "about:blank" && document.readyState === "complete"`);
  return page;
}
