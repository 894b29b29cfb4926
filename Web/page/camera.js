// A camera that looks at a point and turns around it.

const kFieldOfView = (45 * Math.PI) / 180; // across the picture's shorter side
const kSteepest = 1.5; // radians: short of straight up or down, where turning around would have no axis
const kNearest = 0.05; // distances from the point looked at, of the cloud's radius
const kFarthest = 50;

export class Camera {
	constructor() {
		this.up = 1; // -1 where a cloud's y axis points down
		this.reset();
	}

	/** Back to where the whole cloud is in view. */
	reset() {
		this.yaw = 0.35;
		this.pitch = 0.42;
		this.distance = 2.75;
		this.target = [0, 0, 0];
	}

	/** Turns around the point looked at, by radians. */
	turn(yaw, pitch) {
		this.yaw += yaw;
		this.pitch = Math.min(Math.max(this.pitch + pitch, -kSteepest), kSteepest);
	}

	/** Goes nearer for factors below 1. */
	zoom(factor) {
		this.distance = Math.min(Math.max(this.distance * factor, kNearest), kFarthest);
	}

	/** Moves the point looked at, in picture heights to the right and up. */
	pan(right, up) {
		const axes = this.#axes();
		const reach = 2 * this.distance * Math.tan(kFieldOfView / 2);
		this.target = this.target.map((x, i) => x + reach * (right * axes.right[i] + up * axes.up[i]));
	}

	/**
	 * What the orders and the renderer need of the camera as it is now: eye, forward (of length 1), and, for a picture
	 * of width by height pixels, worldToClip, a matrix in columns whose depth is 0 everywhere, since nothing is tested
	 * for it.
	 */
	view(width, height) {
		const { right, up, forward } = this.#axes();
		const eye = this.target.map((x, i) => x - this.distance * forward[i]);
		const shorter = 1 / Math.tan(kFieldOfView / 2);
		const scaleX = shorter * Math.min(1, height / width);
		const scaleY = shorter * Math.min(1, width / height);
		const worldToClip = new Float32Array(16);
		for (let axis = 0; axis < 3; ++axis) {
			worldToClip[4 * axis] = scaleX * right[axis];
			worldToClip[4 * axis + 1] = scaleY * up[axis];
			worldToClip[4 * axis + 3] = forward[axis];
		}
		worldToClip[12] = -scaleX * dot(right, eye);
		worldToClip[13] = -scaleY * dot(up, eye);
		worldToClip[15] = -dot(forward, eye);
		return { eye, forward, worldToClip, width, height };
	}

	#axes() {
		const [sinYaw, cosYaw] = [Math.sin(this.yaw), Math.cos(this.yaw)];
		const [sinPitch, cosPitch] = [Math.sin(this.pitch), Math.cos(this.pitch)];
		const forward = [-sinYaw * cosPitch, -this.up * sinPitch, -cosYaw * cosPitch];
		const right = [this.up * cosYaw, 0, -this.up * sinYaw];
		const up = [
			right[1] * forward[2] - right[2] * forward[1],
			right[2] * forward[0] - right[0] * forward[2],
			right[0] * forward[1] - right[1] * forward[0],
		];
		return { right, up, forward };
	}
}

function dot(a, b) {
	return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
