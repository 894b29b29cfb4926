"""Sorts the particles of a structured array, where positions lie between other data, into an index buffer of quads."""

import numpy as np

import vexmoor

particles = np.zeros(1000, [("age", np.float32), ("position", np.float32, 3)])
particles["position"] = np.random.default_rng(1).uniform(-10, 10, (1000, 3))
camera = np.array((0, 0, 30), np.float32)

index_buffer = np.empty(1000 * 6, np.uint32)  # or memory that a graphics library has mapped
vexmoor.sort_points(particles["position"], camera=camera, pattern=(0, 1, 2, 0, 2, 3), out=index_buffer)

drawn = index_buffer[::6] // 4
distances = np.linalg.norm(particles["position"][drawn] - camera, axis=1)
assert np.all(distances[:-1] >= distances[1:] - 1e-4), "the farthest particle is not drawn first"
print(f"first particle {drawn[0]}, {distances[0]:.2f} away; last particle {drawn[-1]}, {distances[-1]:.2f} away")
