// Writes a picture of the page, as it is after it has turned for some frames: node take_picture.mjs FILE [WIDTH HEIGHT]

import { Browser } from "./browser.mjs";

const [file, width = "1280", height = "800"] = process.argv.slice(2);
const browser = await Browser.start();
try {
	const viewport = { width: Number(width), height: Number(height) };
	await browser.withPage({ viewport, isIsolated: true }, async (open) => {
		const { page } = open;
		await open.settled();
		for (let frame = 0; frame < 15; ++frame)
			// as many as times are kept
			await open.pressed("picture", "ArrowLeft");
		await open.pressed("picture", "Home");
		await page.evaluate(() => document.activeElement.blur()); // no ring around the picture
		await open.settled();
		await page.screenshot({ path: file });
	});
} finally {
	await browser.close();
}
