// Decodes the PNG files that a browser's screenshots are: 8 bits a channel, not interlaced.

import assert from "node:assert/strict";
import { inflateSync } from "node:zlib";

/**
 * @returns {{width: number, height: number, channels: number, pixels: Uint8Array, at: (x: number, y: number) =>
 * number[]}} Rows of pixels, top to bottom, of red, green, blue and perhaps alpha; at gives red, green and blue of one
 * pixel.
 */
export function decodePng(file) {
	let header = null;
	const data = [];
	for (let at = 8; at < file.length;) {
		const size = file.readUInt32BE(at);
		const type = file.toString("latin1", at + 4, at + 8);
		const chunk = file.subarray(at + 8, at + 8 + size);
		if (type === "IHDR")
			header = { width: chunk.readUInt32BE(0), height: chunk.readUInt32BE(4), depth: chunk[8], colour: chunk[9] };
		else if (type === "IDAT") data.push(chunk);
		at += size + 12;
	}
	assert.equal(header.depth, 8);
	const channels = { 2: 3, 6: 4 }[header.colour];
	assert.ok(channels, "red, green, blue, and perhaps alpha");

	const { width, height } = header;
	const rowSize = width * channels;
	const filtered = inflateSync(Buffer.concat(data));
	const pixels = new Uint8Array(rowSize * height);
	for (let y = 0; y < height; ++y) unfilter(filtered, y * (rowSize + 1), pixels, y * rowSize, rowSize, channels);
	const at = (x, y) => [...pixels.subarray((y * width + x) * channels, (y * width + x) * channels + 3)];
	return { width, height, channels, pixels, at };
}

// A row is stored as differences from a guess: the pixel to the left, the one above, their mean, or Paeth's choice.
function unfilter(filtered, from, pixels, to, rowSize, channels) {
	const guess = [() => 0, (left) => left, (left, above) => above, (left, above) => (left + above) >> 1, paeth][
		filtered[from]
	];
	for (let i = 0; i < rowSize; ++i) {
		const left = i < channels ? 0 : pixels[to + i - channels];
		const above = to === 0 ? 0 : pixels[to + i - rowSize];
		const between = i < channels || to === 0 ? 0 : pixels[to + i - rowSize - channels];
		pixels[to + i] = filtered[from + 1 + i] + guess(left, above, between);
	}
}

function paeth(left, above, between) {
	const guess = left + above - between;
	const toLeft = Math.abs(guess - left);
	const toAbove = Math.abs(guess - above);
	const toBetween = Math.abs(guess - between);
	if (toLeft <= toAbove && toLeft <= toBetween) return left;
	return toAbove <= toBetween ? above : between;
}
