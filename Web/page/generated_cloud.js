// The bundled cloud: a still life of splats on a round table, generated the same every time. Surfaces are covered with
// flat splats, fur with long ones, and smoke is a heap of large faint ones. As in trained clouds, splats lie in no
// order.

import { CloudBuilder } from "./cloud.js";

/** 145,500 splats. */
export function generateCloud() {
	const scene = new SceneBuilder();
	addTable(scene);
	addKnot(scene);
	addStripedBall(scene);
	addFurBall(scene);
	addGlassBall(scene);
	addSmoke(scene);
	return scene.finish();
}

const kTau = 2 * Math.PI;
const kToLight = normalized([-0.45, 0.8, 0.4]);
const kTableHeight = -0.42;
const kTableThickness = 0.04;

// What throws a shadow on the table, as a blot: x, z, radius, darkness.
const kShadows = [
	[0, 0, 0.3, 0.55],
	[-0.62, 0.36, 0.24, 0.7],
	[0.62, 0.32, 0.24, 0.7],
	[0.1, 0.66, 0.18, 0.35],
];

function addTable(scene) {
	const count = 30000;
	const goldenAngle = kTau * (1 - 1 / 1.618033988749895);
	for (let i = 0; i < count; ++i) {
		// Vogel's spiral: equal areas.
		const radius = Math.sqrt((i + 0.5) / count);
		const x = radius * Math.cos(i * goldenAngle);
		const z = radius * Math.sin(i * goldenAngle);
		const ring = Math.floor(radius * 9);
		const sector = Math.floor(((Math.atan2(z, x) / kTau + 1) * 24) % 24);
		const isLight = (ring + sector) % 2 === 0;
		let colour = ring === 8 ? [0.83, 0.62, 0.3] : isLight ? [0.86, 0.84, 0.78] : [0.2, 0.26, 0.34];
		for (const [shadowX, shadowZ, size, darkness] of kShadows) {
			const dx = x - shadowX - 0.1; // thrown away from the light
			const dz = z - shadowZ + 0.08;
			const light = 1 - darkness * Math.exp(-(dx * dx + dz * dz) / (size * size));
			colour = colour.map((channel) => channel * light);
		}
		scene.addFlat(
			[x, kTableHeight, z],
			[0, 1, 0],
			0.0058,
			colour.map((channel) => channel * 0.95),
			0.97
		);
	}

	// A table has an underside, too, which nobody sees from above as long as the order is right.
	const undersideCount = 12000;
	for (let i = 0; i < undersideCount; ++i) {
		const radius = Math.sqrt((i + 0.5) / undersideCount);
		const [x, z] = [radius * Math.cos(i * goldenAngle), radius * Math.sin(i * goldenAngle)];
		const grain = 0.8 + 0.2 * Math.sin(40 * z + 3 * Math.sin(5 * x));
		scene.addFlat(
			[x, kTableHeight - kTableThickness, z],
			[0, -1, 0],
			0.009,
			[0.5 * grain, 0.2 * grain, 0.1 * grain],
			0.97
		);
	}
	for (let i = 0; i < 6000; ++i) {
		const angle = kTau * scene.random();
		const normal = [Math.cos(angle), 0, Math.sin(angle)];
		const position = add(normal, [0, kTableHeight - kTableThickness * (0.15 + 0.8 * scene.random()), 0]);
		scene.addLit(position, normal, 0.007, [0.6, 0.4, 0.2], 0.95, 0);
	}
}

// A tube along a (2, 3) torus knot, in the colours of the rainbow.
function addKnot(scene) {
	const centre = [0, 0.12, -0.02];
	const tubeRadius = 0.085;
	const at = (t) => {
		const ring = 0.3 + 0.12 * Math.cos(3 * t);
		return [ring * Math.cos(2 * t), ring * Math.sin(2 * t), 0.16 * Math.sin(3 * t)];
	};
	for (let i = 0; i < 44000; ++i) {
		const t = kTau * scene.random();
		const round = kTau * scene.random();
		const along = normalized(subtract(at(t + 1e-3), at(t - 1e-3)));
		const side = normalized(cross(along, [0.3, 0.1, 1]));
		const up = cross(side, along);
		const normal = add(scaled(side, Math.cos(round)), scaled(up, Math.sin(round)));
		const position = add(add(at(t), scaled(normal, tubeRadius)), centre);
		scene.addLit(position, normal, 0.0078, hue(t / kTau), 0.95, 0.5);
	}
}

// Its skin lies around another ball.
function addStripedBall(scene) {
	const centre = [-0.62, kTableHeight + 0.2, 0.36];
	addBall(scene, centre, 0.2, 17000, 0.006, (normal) => {
		const stripe = Math.sin(9 * (normal[1] + 0.25 * Math.sin(2 * Math.atan2(normal[2], normal[0]))));
		return stripe > 0 ? [0.82, 0.17, 0.16] : [0.95, 0.9, 0.82];
	});
	addBall(scene, centre, 0.165, 9000, 0.007, () => [0.1, 0.3, 0.75]);
}

// A ball whose fur stands on end: splats ten times as long as they are wide.
function addFurBall(scene) {
	const centre = [0.62, kTableHeight + 0.2, 0.32];
	for (let i = 0; i < 17000; ++i) {
		const normal = scene.direction();
		const bent = normalized(add(normal, scaled([Math.sin(9 * normal[1]), -0.5, Math.cos(9 * normal[0])], 0.35)));
		const root = 0.13 + 0.05 * scene.random();
		const shade = 0.35 + 0.65 * ((root - 0.13) / 0.05);
		const colour = [0.25 * shade, 0.78 * shade, 0.6 * shade];
		scene.addLong(add(centre, scaled(normal, root)), bent, 0.022, 0.0022, lit(colour, normal, 0.2), 0.9);
	}
}

// Faint splats: what lies behind shows through, if it was drawn before.
function addGlassBall(scene) {
	const centre = [0.1, kTableHeight + 0.15, 0.66];
	for (let i = 0; i < 9000; ++i) {
		const normal = scene.direction();
		const glint = Math.max(0, dot(normal, kToLight)) ** 30;
		scene.addFlat(
			add(centre, scaled(normal, 0.15)),
			normal,
			0.007,
			[0.35 + 0.65 * glint, 0.6 + 0.4 * glint, 1],
			0.06 + 0.85 * glint
		);
	}
}

function addSmoke(scene) {
	for (let i = 0; i < 1500; ++i) {
		const rise = scene.random();
		const angle = 5 * rise + kTau * scene.random();
		const spread = 0.02 + 0.2 * rise * scene.random();
		const position = [
			0.05 + spread * Math.cos(angle) + 0.1 * Math.sin(4 * rise),
			0.55 + 0.6 * rise,
			-0.05 + spread * Math.sin(angle),
		];
		const warmth = (1 - rise) ** 3;
		const colour = [0.55 + 0.45 * warmth, 0.57 + 0.1 * warmth, 0.62 - 0.4 * warmth];
		scene.addLong(position, scene.direction(), 0.03 + 0.04 * rise, 0.03 + 0.02 * rise, colour, 0.09 * (1.1 - rise));
	}
}

function addBall(scene, centre, radius, count, size, colourOf) {
	for (let i = 0; i < count; ++i) {
		const normal = scene.direction();
		scene.addLit(add(centre, scaled(normal, radius)), normal, size, colourOf(normal), 0.95, 0.7);
	}
}

// Collects splats, shuffles them, and hands them to a cloud.
class SceneBuilder {
	constructor() {
		this.splats = [];
		this.state = 0x9e3779b9;
	}

	/** From 0 up to 1, excluded: xorshift (G. Marsaglia, "Xorshift RNGs", 2003), the same sequence every time. */
	random() {
		this.state ^= this.state << 13;
		this.state ^= this.state >>> 17;
		this.state ^= this.state << 5;
		return (this.state >>> 0) / 4294967296;
	}

	/** Of length 1, each as likely as any other. */
	direction() {
		const y = 2 * this.random() - 1;
		const angle = kTau * this.random();
		const ring = Math.sqrt(1 - y * y);
		return [ring * Math.cos(angle), y, ring * Math.sin(angle)];
	}

	/** A disc on a surface. */
	addFlat(position, normal, size, colour, alpha) {
		this.#add(position, turnTo(normal), [size, size, 0.1 * size], colour, alpha);
	}

	/** A disc on a surface that the lamp shines on. */
	addLit(position, normal, size, colour, alpha, shine) {
		this.addFlat(position, normal, size, lit(colour, normal, shine), alpha);
	}

	/** A needle, or with equal numbers a ball. */
	addLong(position, direction, length, width, colour, alpha) {
		this.#add(position, turnTo(direction), [width, width, length], colour, alpha);
	}

	finish() {
		const { splats } = this;
		for (let i = splats.length - 1; i > 0; --i) {
			const other = Math.floor((i + 1) * this.random());
			[splats[i], splats[other]] = [splats[other], splats[i]];
		}
		const builder = new CloudBuilder(splats.length);
		for (const { position, rotation, scales, colour, alpha } of splats) {
			builder.position.set(position);
			builder.rotation.set(rotation);
			builder.logScales.set(scales.map(Math.log));
			builder.colour.set([...colour, alpha]);
			builder.add();
		}
		return builder.finish();
	}

	#add(position, rotation, scales, colour, alpha) {
		this.splats.push({ position, rotation, scales, colour, alpha });
	}
}

// Light from the lamp and from the sky, and a highlight for an eye that is above and in front.
function lit(colour, normal, shine) {
	const diffuse = 0.38 + 0.14 * normal[1] + 0.62 * Math.max(0, dot(normal, kToLight));
	const half = normalized(add(kToLight, normalized([0, 0.4, 1])));
	const highlight = shine * Math.max(0, dot(normal, half)) ** 40;
	return colour.map((channel) => Math.min(1, channel * diffuse + highlight));
}

// The quaternion w, x, y, z that turns the z axis to a direction.
function turnTo([x, y, z]) {
	return z > -0.9999 ? [1 + z, -y, x, 0] : [0, 1, 0, 0];
}

function hue(turn) {
	return [0, 1 / 3, 2 / 3].map((shift) => 0.55 + 0.42 * Math.cos(kTau * (turn + shift)));
}

function add(a, b) {
	return [a[0] + b[0], a[1] + b[1], a[2] + b[2]];
}

function subtract(a, b) {
	return [a[0] - b[0], a[1] - b[1], a[2] - b[2]];
}

function scaled(a, factor) {
	return [a[0] * factor, a[1] * factor, a[2] * factor];
}

function dot(a, b) {
	return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

function cross(a, b) {
	return [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
}

function normalized(a) {
	return scaled(a, 1 / Math.sqrt(dot(a, a)));
}
