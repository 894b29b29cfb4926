// A browser without a window, and what tests do with the page in it.

import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";
import { serve } from "../../server/static_server.mjs";
import { decodePng } from "./png.mjs";

const kBuild = process.env.VEXMOOR_WEB_BUILD;
const kBrowsers = ["/usr/bin/chromium", "/usr/bin/chromium-browser", "/usr/bin/google-chrome"];
const kTimeout = 40000; // milliseconds: graphics without a graphics card, on a machine that has other work

// A software renderer draws, so that pictures are the same wherever tests run. It goes nowhere by itself.
const kArguments = [
	"--no-sandbox",
	"--use-angle=swiftshader",
	"--enable-unsafe-swiftshader",
	"--no-first-run",
	"--disable-quic",
	"--disable-background-networking",
	"--disable-component-update",
	"--disable-sync",
];

/** The browser, with a page of its own for each test. */
export class Browser {
	static async start() {
		const browser = new Browser();
		const { chromium } = createRequire(join(kBuild, "tests/package.json"))("playwright-core");
		browser.servers = {
			plain: await serve(join(kBuild, "page"), { isIsolated: false }),
			isolated: await serve(join(kBuild, "page")),
		};
		browser.browser = await chromium.launch({
			executablePath: kBrowsers.find((path) => existsSync(path)),
			args: kArguments,
		});
		return browser;
	}

	async close() {
		await this.browser?.close();
		for (const server of Object.values(this.servers ?? {})) server.close();
	}

	/**
	 * Opens the page and hands it to a test. Afterwards no error was said, and nothing was fetched from elsewhere.
	 * @param options Of the browser's context. Unless told otherwise, the page is small and does not turn by itself.
	 * With `isIsolated` it is isolated from other origins and may share memory.
	 */
	async withPage({ isIsolated = false, ...options }, runTest) {
		const { address } = isIsolated ? this.servers.isolated : this.servers.plain;
		const context = await this.browser.newContext({
			viewport: { width: 960, height: 440 },
			reducedMotion: "reduce",
			...options,
		});
		try {
			const page = await context.newPage();
			page.setDefaultTimeout(kTimeout);
			const problems = [];
			page.on("pageerror", (error) => problems.push(error.stack));
			page.on(
				"console",
				(message) => ["error", "warning"].includes(message.type()) && problems.push(message.text())
			);
			page.on("request", (request) => {
				const url = request.url();
				if (!url.startsWith(address) && !url.startsWith("data:") && !url.startsWith("blob:"))
					problems.push(`fetched ${url}`);
			});
			await page.goto(address);
			await runTest(new OpenPage(page, context));
			assert.deepEqual(problems, []);
		} finally {
			await context.close();
		}
	}
}

/** An open page. */
class OpenPage {
	constructor(page, context) {
		this.page = page;
		this.context = context;
	}

	/** Waits until what is shown is drawn and measured. */
	async settled() {
		await this.page.waitForSelector('html[data-state="settled"]', { state: "attached" });
	}

	text(selector) {
		return this.page.textContent(selector);
	}

	figure(name) {
		return this.text(`[data-figure="${name}"]`);
	}

	/** Chooses one of a row of buttons. */
	async choose(name, value) {
		await this.page.click(`label:has(input[name="${name}"][value="${value}"])`);
		await this.settled();
	}

	/** Drops a file on the page. */
	async drop(name, content) {
		const bytes = content.toString("base64");
		await this.page.evaluate(
			([name, bytes]) => {
				const file = new File([Uint8Array.from(atob(bytes), (letter) => letter.charCodeAt(0))], name);
				const dataTransfer = new DataTransfer();
				dataTransfer.items.add(file);
				for (const type of ["dragover", "drop"])
					document.body.dispatchEvent(new DragEvent(type, { dataTransfer, bubbles: true, cancelable: true }));
			},
			[name, bytes]
		);
	}

	/** Drops a file that is read. */
	async show(name, content) {
		await this.drop(name, content);
		await this.page.waitForFunction((name) => document.querySelector("#scene").textContent.startsWith(name), name);
		await this.settled();
	}

	/** What is drawn, without what lies over it. */
	async picture() {
		const setStyles = (visibility, outline) =>
			this.page.evaluate(
				([visibility, outline]) => {
					for (const { style } of document.querySelectorAll("#divider, .side, #status, #refusal"))
						style.visibility = visibility;
					document.querySelector("#picture").style.outline = outline;
				},
				[visibility, outline]
			);
		await setStyles("hidden", "none");
		const picture = decodePng(await this.page.locator("#picture").screenshot());
		await setStyles("", "");
		return picture;
	}

	/** Presses a key where an element has the focus, and waits until that is drawn. */
	async pressed(id, key) {
		await this.page.focus(`#${id}`);
		await this.page.keyboard.press(key);
		await this.#drawn();
	}

	/** Does something, and returns the picture afterwards: another one than before. */
	async pictureAfter(before, what, act) {
		await act();
		await this.#drawn();
		const after = await this.picture();
		assert.ok(differingShare(before, after) > 0, `${what} changes the picture`);
		return after;
	}

	async #drawn() {
		await this.page.waitForTimeout(50); // until the page has heard of what was done
		await this.page.waitForSelector('html:not([data-state="busy"])', { state: "attached" });
	}
}

/** Of the pixels in columns `from` to `to` of two pictures, the share that differs. */
export function differingShare(a, b, from = 0, to = a.width) {
	assert.deepEqual([a.width, a.height, a.channels], [b.width, b.height, b.channels]);
	let differing = 0;
	for (let y = 0; y < a.height; ++y)
		for (let x = from; x < to; ++x) {
			const pixel = a.channels * (y * a.width + x);
			const isEqual = [0, 1, 2].every((channel) => a.pixels[pixel + channel] === b.pixels[pixel + channel]);
			differing += isEqual ? 0 : 1;
		}
	return differing / ((to - from) * a.height);
}
