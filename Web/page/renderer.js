// Draws a cloud's splats in a given order with WebGL 2, side by side with another order of the same cloud. Seen by a
// camera, a Gaussian in space is an ellipse; a quad around it fades out from its middle, and is blended over what was
// drawn before: colours are a screen's, premultiplied.

import { kWordsPerSplat } from "./cloud.js";

const kWordsPerTexel = 4;
const kBackground = [0.055, 0.07, 0.095];

const kVertexShader = `#version 300 es
precision highp float;
precision highp int;
precision highp usampler2D;
uniform usampler2D splats; // two texels a splat
uniform mat4 worldToClip;
uniform vec2 halfPicture;  // in pixels
layout(location = 0) in uint splat;
flat out vec4 colour;
out vec2 deviations;

vec2 unpackSnorm(uint word) {
	return max(vec2(int(word << 16) >> 16, int(word) >> 16) / 32767.0, -1.0);
}

vec2 unpackUnorm(uint word) {
	return vec2(word & 0xffffu, word >> 16) / 65535.0;
}

// Columns: the axes of the Gaussian, as long as its standard deviations.
mat3 axesOf(uvec4 shape) {
	vec2 wx = unpackSnorm(shape.x);
	vec2 yz = unpackSnorm(shape.y);
	vec3 scales = exp(vec3(unpackUnorm(shape.z), unpackUnorm(shape.w).x) * 64.0 - 32.0);
	float w = wx.x, x = wx.y, y = yz.x, z = yz.y;
	return mat3(
		scales.x * vec3(1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y + w * z), 2.0 * (x * z - w * y)),
		scales.y * vec3(2.0 * (x * y - w * z), 1.0 - 2.0 * (x * x + z * z), 2.0 * (y * z + w * x)),
		scales.z * vec3(2.0 * (x * z + w * y), 2.0 * (y * z - w * x), 1.0 - 2.0 * (x * x + y * y)));
}

void main() {
	const float nearest = 0.02;
	const float beyondEdge = 1.3; // what is farther out is projected as if it stood there: the linear map ends
	const float blur = 0.3;       // variance in pixels: a splat is never smaller than the grid that shows it
	const float longest = 1024.0; // pixels

	int width = textureSize(splats, 0).x;
	int texel = 2 * int(splat);
	ivec2 at = ivec2(texel % width, texel / width);
	uvec4 head = texelFetch(splats, at, 0);
	uvec4 shape = texelFetch(splats, at + ivec2(1, 0), 0);

	gl_Position = vec4(2.0, 2.0, 0.0, 1.0); // out of the picture
	deviations = vec2(0.0);
	colour = vec4(head.w & 0xffu, head.w >> 8 & 0xffu, head.w >> 16 & 0xffu, head.w >> 24) / 255.0;
	vec4 middle = worldToClip * vec4(uintBitsToFloat(head.xyz), 1.0);
	if (middle.w < nearest || colour.a == 0.0)
		return;

	// What a small step in space is in the picture, in pixels.
	mat4 rows = transpose(worldToClip);
	vec2 edge = clamp(middle.xy / middle.w, -beyondEdge, beyondEdge);
	vec3 toX = halfPicture.x / middle.w * (rows[0].xyz - rows[3].xyz * edge.x);
	vec3 toY = halfPicture.y / middle.w * (rows[1].xyz - rows[3].xyz * edge.y);
	mat3 axes = axesOf(shape);
	vec3 x = toX * axes;
	vec3 y = toY * axes;
	float xx = dot(x, x) + blur;
	float xy = dot(x, y);
	float yy = dot(y, y) + blur;

	// The covariance's eigenvectors are the axes of the ellipse, and its eigenvalues their squared lengths.
	float mean = 0.5 * (xx + yy);
	float spread = length(vec2(0.5 * (xx - yy), xy));
	vec2 first = abs(xy) > 1e-6 * mean
		? normalize(vec2(xy, mean + spread - xx))
		: (xx >= yy ? vec2(1.0, 0.0) : vec2(0.0, 1.0));
	// deviations after which less than a step of a screen is left
	float extent = sqrt(2.0 * log(max(255.0 * colour.a, 1.0)));
	vec2 lengths = min(extent * sqrt(vec2(mean + spread, max(mean - spread, blur))), longest);
	vec2 toClip = middle.w / halfPicture;
	vec2 reach = (abs(first) * lengths.x + abs(first.yx) * lengths.y) * toClip;
	if (any(greaterThan(abs(middle.xy) - reach, middle.ww)))
		return;

	vec2 corner = vec2(gl_VertexID & 1, gl_VertexID >> 1) * 2.0 - 1.0;
	vec2 pixels = first * (corner.x * lengths.x) + vec2(-first.y, first.x) * (corner.y * lengths.y);
	gl_Position = middle + vec4(pixels * toClip, 0.0, 0.0);
	deviations = corner * extent;
}
`;

const kFragmentShader = `#version 300 es
precision highp float;
flat in vec4 colour;
in vec2 deviations;
out vec4 light;

void main() {
	float alpha = colour.a * exp(-0.5 * dot(deviations, deviations));
	if (alpha * 255.0 < 1.0)
		discard;
	light = vec4(colour.rgb * alpha, alpha);
}
`;

export class Renderer {
	/** Throws an Error with a sentence where there is no WebGL 2. */
	constructor(canvas) {
		this.canvas = canvas;
		const gl = canvas.getContext("webgl2", { alpha: false, antialias: false, depth: false });
		if (gl === null) throw new Error("This browser has no WebGL 2, which the page draws with.");
		this.gl = gl;
		this.program = linked(gl);
		this.uniforms = Object.fromEntries(
			["worldToClip", "halfPicture"].map((name) => [name, gl.getUniformLocation(this.program, name)])
		);
		this.textureWidth = Math.min(gl.getParameter(gl.MAX_TEXTURE_SIZE), 4096);
		this.texture = gl.createTexture();
		this.orders = { exact: new InstanceOrder(gl), sixteen: new InstanceOrder(gl) };
		gl.enable(gl.BLEND);
		gl.blendFunc(gl.ONE, gl.ONE_MINUS_SRC_ALPHA);
		gl.clearColor(...kBackground, 1);
	}

	/** The most splats that a texture of this device holds. */
	get maxSplats() {
		const { gl, textureWidth } = this;
		return (textureWidth * kWordsPerTexel * gl.getParameter(gl.MAX_TEXTURE_SIZE)) / kWordsPerSplat;
	}

	/** Takes over a cloud's splats, and the outlier behind them. */
	setCloud(cloud) {
		const { gl, textureWidth } = this;
		const wordsPerRow = textureWidth * kWordsPerTexel;
		const rows = Math.ceil(cloud.splats.length / wordsPerRow);
		gl.deleteTexture(this.texture);
		this.texture = gl.createTexture();
		gl.bindTexture(gl.TEXTURE_2D, this.texture);
		gl.texStorage2D(gl.TEXTURE_2D, 1, gl.RGBA32UI, textureWidth, rows);
		gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MIN_FILTER, gl.NEAREST);
		gl.texParameteri(gl.TEXTURE_2D, gl.TEXTURE_MAG_FILTER, gl.NEAREST);
		const upload = (words, x, row, width, height) =>
			gl.texSubImage2D(gl.TEXTURE_2D, 0, x, row, width, height, gl.RGBA_INTEGER, gl.UNSIGNED_INT, words);
		const fullRows = Math.floor(cloud.splats.length / wordsPerRow);
		const rest = cloud.splats.subarray(fullRows * wordsPerRow);
		if (fullRows > 0) upload(cloud.splats.subarray(0, fullRows * wordsPerRow), 0, 0, textureWidth, fullRows);
		if (rest.length > 0) upload(rest, 0, fullRows, rest.length / kWordsPerTexel, 1);
	}

	/** Takes over one splat that has changed. */
	updateSplat(cloud, splat) {
		const { gl, textureWidth } = this;
		const words = cloud.splats.subarray(kWordsPerSplat * splat, kWordsPerSplat * (splat + 1));
		const texel = (kWordsPerSplat / kWordsPerTexel) * splat;
		const [x, row] = [texel % textureWidth, Math.floor(texel / textureWidth)];
		gl.bindTexture(gl.TEXTURE_2D, this.texture);
		gl.texSubImage2D(gl.TEXTURE_2D, 0, x, row, 2, 1, gl.RGBA_INTEGER, gl.UNSIGNED_INT, words);
	}

	/** Takes over the first `count` indices of an order: "exact" or "sixteen". */
	setOrder(name, indices, count) {
		this.orders[name].set(indices, count);
	}

	/**
	 * Draws the exact order left of a divider and that of 16 bits right of it. The divider is a share of the width: at
	 * 1 only the exact order shows, at 0 only the other.
	 */
	draw(view, divider) {
		const { gl, canvas } = this;
		if (canvas.width !== view.width || canvas.height !== view.height)
			[canvas.width, canvas.height] = [view.width, view.height];
		gl.viewport(0, 0, view.width, view.height);
		gl.disable(gl.SCISSOR_TEST);
		gl.clear(gl.COLOR_BUFFER_BIT);
		gl.useProgram(this.program);
		gl.bindTexture(gl.TEXTURE_2D, this.texture);
		gl.uniformMatrix4fv(this.uniforms.worldToClip, false, view.worldToClip);
		gl.uniform2f(this.uniforms.halfPicture, view.width / 2, view.height / 2);

		const middle = Math.round(divider * view.width);
		gl.enable(gl.SCISSOR_TEST);
		this.#drawPart(this.orders.exact, 0, middle, view.height);
		this.#drawPart(this.orders.sixteen, middle, view.width, view.height);
	}

	#drawPart(order, left, right, height) {
		if (left >= right) return;
		this.gl.scissor(left, 0, right - left, height);
		order.draw();
	}
}

// Indices of splats as an attribute of instances: each is drawn as a quad.
class InstanceOrder {
	constructor(gl) {
		this.gl = gl;
		this.count = 0;
		this.buffer = gl.createBuffer();
		this.vertexArray = gl.createVertexArray();
		gl.bindVertexArray(this.vertexArray);
		gl.bindBuffer(gl.ARRAY_BUFFER, this.buffer);
		gl.enableVertexAttribArray(0);
		gl.vertexAttribIPointer(0, 1, gl.UNSIGNED_INT, 0, 0);
		gl.vertexAttribDivisor(0, 1);
		gl.bindVertexArray(null);
	}

	set(indices, count) {
		const { gl } = this;
		gl.bindBuffer(gl.ARRAY_BUFFER, this.buffer);
		gl.bufferData(gl.ARRAY_BUFFER, indices, gl.STREAM_DRAW, 0, count);
		this.count = count;
	}

	draw() {
		const { gl } = this;
		gl.bindVertexArray(this.vertexArray);
		gl.drawArraysInstanced(gl.TRIANGLE_STRIP, 0, 4, this.count);
		gl.bindVertexArray(null);
	}
}

function linked(gl) {
	const program = gl.createProgram();
	for (const [type, source] of [
		[gl.VERTEX_SHADER, kVertexShader],
		[gl.FRAGMENT_SHADER, kFragmentShader],
	]) {
		const shader = gl.createShader(type);
		gl.shaderSource(shader, source);
		gl.compileShader(shader);
		gl.attachShader(program, shader);
	}
	gl.linkProgram(program);
	if (!gl.getProgramParameter(program, gl.LINK_STATUS)) {
		const words = gl.getAttachedShaders(program).map((shader) => gl.getShaderInfoLog(shader));
		throw new Error(`The graphics driver does not take the shaders: ${words.join(" ")}`);
	}
	return program;
}
