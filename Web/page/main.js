// Starts the page.

import { Camera } from "./camera.js";
import { FiguresTable } from "./figures_table.js";
import { FrameLoop } from "./frame_loop.js";
import { Page, refuse } from "./page.js";
import { Renderer } from "./renderer.js";

start().catch(giveUp);

async function start() {
	const renderer = new Renderer(document.querySelector("#picture"));
	const loop = new FrameLoop(renderer, new Camera(), new FiguresTable(document.querySelector("#figures")), giveUp);
	const page = new Page(loop, giveUp);
	page.connectControls();
	loop.run();
	await page.showBundled();
}

// What is no fault of a file's ends the page, with a sentence too.
function giveUp(error) {
	document.querySelector("#status").textContent = "";
	refuse(error.message);
	throw error;
}
