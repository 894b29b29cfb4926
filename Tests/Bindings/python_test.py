#!/usr/bin/env python3
"""Samples/languages/vexmoor.py as its users call it: what is sorted, that nothing is copied, and that every wrong call
raises an exception and writes nothing. VEXMOOR_LIBRARY names the shared library, as for the module."""

import ctypes
import sys
import unittest
import warnings
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).parents[2] / "Samples/languages"))
import vexmoor  # noqa: E402

QUAD = (0, 1, 2, 0, 2, 3)
UNTOUCHED = 0xABCD


def random_positions(count, seed=1):
    return np.random.default_rng(seed).uniform(-10, 10, (count, 3)).astype(np.float32)


def squared_distances(positions, camera=(0, 0, 0)):
    return np.sum((positions.astype(np.float64) - np.array(camera)) ** 2, axis=1)


def indices(count, dtype=np.uint32):
    return np.full(count, UNTOUCHED, dtype)


class Sorted(unittest.TestCase):
    def setUp(self):
        warnings.simplefilter("error")  # advice that nobody expects

    def assert_farthest_first(self, order, positions, camera=(0, 0, 0)):
        distances = squared_distances(positions, camera)
        self.assertEqual(sorted(order), list(range(len(positions))))
        self.assertTrue(np.all(np.diff(distances[order]) <= 1e-4))

    def test_positions_come_out_farthest_first(self):
        for count in (1, 2, 109, 110, 5000):
            positions = random_positions(count)
            self.assert_farthest_first(vexmoor.sort_points(positions), positions)

    def test_a_camera_is_where_it_is(self):
        positions = random_positions(500)
        order = vexmoor.sort_points(positions, camera=(5, -6, 7))
        self.assert_farthest_first(order, positions, (5, -6, 7))

    def test_values_come_out_lowest_first(self):
        values = np.random.default_rng(2).permutation(1000).astype(np.float32)
        order = vexmoor.sort_points(values=values)
        self.assertEqual(list(values[order]), list(range(1000)))

    def test_a_pattern_is_drawn_for_each_particle(self):
        positions = random_positions(50)
        order = vexmoor.sort_points(positions)
        drawn = vexmoor.sort_points(positions, pattern=QUAD)
        self.assertEqual(list(drawn), [4 * particle + entry for particle in order for entry in QUAD])

    def test_indices_go_into_the_callers_array(self):
        out = indices(40)
        result = vexmoor.sort_points(random_positions(30), out=out)
        self.assertTrue(np.shares_memory(result, out))
        self.assertEqual(len(result), 30)
        self.assertTrue(np.all(out[30:] == UNTOUCHED))
        self.assertTrue(np.all(out[:30] != UNTOUCHED))

    def test_indices_of_16_bits(self):
        positions = random_positions(300)
        result = vexmoor.sort_points(positions, out=indices(300, np.uint16))
        self.assertEqual(result.dtype, np.uint16)
        self.assertEqual(list(result), list(vexmoor.sort_points(positions)))

    def test_pages_are_numbered_through(self):
        positions = random_positions(90)
        pages = [positions[:20], positions[20:20], positions[20:]]
        self.assertEqual(list(vexmoor.sort_points(pages)), list(vexmoor.sort_points(positions)))
        self.assertEqual(list(vexmoor.sort_points(iter(pages))), list(vexmoor.sort_points(positions)))

    def test_disabled_particles_are_left_out(self):
        positions = random_positions(100)
        enabled = np.arange(100) % 3 != 0
        numbers = vexmoor.sort_points(positions, enabled=enabled)
        self.assert_farthest_first(numbers, positions[enabled])
        self.assertEqual(list(numbers), list(vexmoor.sort_points(positions, enabled=enabled.view(np.uint8))))

    def test_an_index_list_says_where_vertices_lie(self):
        positions = random_positions(10)
        index_list = np.arange(10, dtype=np.uint32)[::-1].copy() * 7
        order = vexmoor.sort_points(positions)
        self.assertEqual(list(vexmoor.sort_points(positions, index_list=index_list)), list(index_list[order]))

    def test_no_particles_give_no_indices(self):
        with warnings.catch_warnings(record=True) as advice:
            warnings.simplefilter("always")
            result = vexmoor.sort_points(random_positions(0))
        self.assertEqual(len(result), 0)
        self.assertIn("0 particles", str(advice[0].message))

    def test_not_a_number_is_farther_than_everything(self):
        positions = random_positions(20)
        positions[7, 1] = np.nan
        positions[3, 0] = np.inf
        order = vexmoor.sort_points(positions)
        self.assertEqual(list(order[:2]), [7, 3])
        self.assertEqual(sorted(order), list(range(20)))


class Strides(unittest.TestCase):
    def order_and_advice(self, positions, **arguments):
        with warnings.catch_warnings(record=True) as advice:
            warnings.simplefilter("always")
            order = vexmoor.sort_points(positions, **arguments)
        return list(order), [str(each.message) for each in advice]

    def test_every_second_particle(self):
        positions = random_positions(200)
        order, advice = self.order_and_advice(positions[::2])
        self.assertEqual(order, list(vexmoor.sort_points(positions[::2].copy())))
        self.assertEqual(advice, ["The positions of page 0 have a stride of 24: 12 is faster."])

    def test_a_field_of_a_structured_array(self):
        particles = np.zeros(200, [("age", np.float32), ("position", np.float32, 3), ("flags", np.uint8)])
        particles["position"] = random_positions(200)
        order, _ = self.order_and_advice(particles["position"])  # at odd addresses, 17 bytes apart
        self.assertEqual(order, list(vexmoor.sort_points(particles["position"].copy())))
        particles["age"] = -np.arange(200)
        order, _ = self.order_and_advice(None, values=particles["age"])
        self.assertEqual(order, list(range(199, -1, -1)))

    def test_positions_of_four_floats(self):
        positions = np.ones((100, 4), np.float32)
        positions[:, :3] = random_positions(100)
        order, _ = self.order_and_advice(positions[:, :3])
        self.assertEqual(order, list(vexmoor.sort_points(positions[:, :3].copy())))

    def test_one_position_for_all_is_advised(self):
        order, advice = self.order_and_advice(np.broadcast_to(np.ones(3, np.float32), (5, 3)))
        self.assertEqual(sorted(order), list(range(5)))
        self.assertEqual(advice,
            ["Page 0 has a stride of 0, so all its positions are the first one: packed ones have 12."])

    def test_nothing_is_written_to_positions(self):
        positions = random_positions(100)
        positions.flags.writeable = False
        before = positions.copy()
        vexmoor.sort_points(positions)
        self.assertTrue(np.array_equal(positions, before))


class Refused(unittest.TestCase):
    def assert_refused(self, error, words, positions=None, **arguments):
        out = arguments.setdefault("out", indices(64))
        before = np.array(out, copy=True)
        with self.assertRaisesRegex(error, words):
            vexmoor.sort_points(positions, **arguments)
        self.assertTrue(np.array_equal(out, before), "something was written")

    # What the module sees.

    def test_dtypes(self):
        for dtype in (np.float64, np.int32, np.float16, ">f4", complex, object):
            self.assert_refused(TypeError, "float32", np.zeros((4, 3), dtype))
        self.assert_refused(TypeError, "float32, not list", [[[0.0, 0.0, 0.0]]])
        self.assert_refused(TypeError, "float32", values=np.zeros(4))
        self.assert_refused(TypeError, "uint8", random_positions(4), enabled=np.ones(4, np.int32))
        self.assert_refused(TypeError, "uint32", random_positions(4), index_list=np.arange(4))
        for dtype in (np.int32, np.uint64, np.float32, ">u4"):
            self.assert_refused(TypeError, "out", random_positions(4), out=indices(4, np.uint32).astype(dtype))

    def test_shapes(self):
        for shape in ((4,), (4, 2), (4, 4), (4, 3, 1), ()):
            self.assert_refused(ValueError, "shape", np.zeros(shape, np.float32))
        self.assert_refused(ValueError, "shape", values=np.zeros((4, 1), np.float32))
        self.assert_refused(ValueError, "one dimension", random_positions(4), out=indices(64).reshape(8, 8))

    def test_strides_that_cannot_be_said(self):
        positions = random_positions(8)
        self.assert_refused(ValueError, "ascending", positions[::-1])
        self.assert_refused(ValueError, "side by side", np.asfortranarray(positions))
        self.assert_refused(ValueError, "no gaps", positions, out=indices(64)[::2])
        self.assert_refused(ValueError, "no gaps", positions, index_list=np.arange(16, dtype=np.uint32)[::2])

    def test_output_that_is_too_small(self):
        for room in (0, 3, 23):
            self.assert_refused(
                ValueError, f"room for {room} indices, but 24 are drawn", random_positions(4), pattern=QUAD,
                out=indices(room))

    def test_output_that_is_read_only(self):
        out = indices(64)
        out.flags.writeable = False
        self.assert_refused(ValueError, "read-only", random_positions(4), out=out)

    def test_numbers(self):
        positions = random_positions(4)
        self.assert_refused(ValueError, "32 bits", positions, vertex_count=-1)
        self.assert_refused(ValueError, "32 bits", positions, vertices_per_particle=2**32)
        self.assert_refused(TypeError, "integer", positions, vertex_count=1.5)
        self.assert_refused(ValueError, "32 bits", positions, pattern=(0, -1, 2))
        self.assert_refused(TypeError, "whole numbers", positions, pattern=(0.5, 1))
        self.assert_refused(ValueError, "unpack", positions, camera=(0, 0))
        self.assert_refused(ValueError, "unpack", positions, camera=(0, 0, 0, 1))

    def test_keys(self):
        self.assert_refused(TypeError, "either positions or values")
        values = np.zeros(4, np.float32)
        self.assert_refused(TypeError, "either positions or values", random_positions(4), values=values)

    # What the library sees.

    def test_no_pages(self):
        self.assert_refused(vexmoor.VexmoorError, "page_count is 0", [])

    def test_enabled_bytes_of_another_count(self):
        self.assert_refused(vexmoor.VexmoorError, "Page 0 has enabled bytes for 5, but positions for 4.",
            random_positions(4), enabled=np.ones(5, np.uint8))
        self.assert_refused(ValueError, "2 pages", [random_positions(4)] * 2, enabled=np.ones(4, np.uint8))

    def test_enabled_bytes_with_gaps(self):
        self.assert_refused(vexmoor.VexmoorError, "The enabled bytes of page 0 have a stride of 2, but need 1.",
            random_positions(4), enabled=np.ones(8, np.uint8)[::2])

    def test_a_pattern_that_is_none(self):
        self.assert_refused(vexmoor.VexmoorError, "has 0 entries", random_positions(4),
            pattern=np.zeros(0, np.uint32))
        self.assert_refused(vexmoor.VexmoorError, "only entry is 5, but has to be 0", random_positions(4), pattern=(5,))

    def test_an_index_list_that_is_too_short(self):
        for count in (3, 0):
            self.assert_refused(vexmoor.VexmoorError,
                f"The count of the index list is {count}, but the particle count is 4.", random_positions(4),
                index_list=np.zeros(count, np.uint32))

    def test_indices_beyond_16_bits(self):
        self.assert_refused(vexmoor.VexmoorError, "indices of 16 bits end at 65534", random_positions(4),
            pattern=(0, 1, 2), index_list=np.full(4, 65533, np.uint32), out=indices(64, np.uint16))

    def test_output_over_positions(self):
        positions = random_positions(64)
        self.assert_refused(vexmoor.VexmoorError, "The output overlaps the positions of page 0", positions,
            out=positions.reshape(-1).view(np.uint32))

    def test_positions_that_overlap_themselves(self):
        floats = np.zeros(64, np.float32)
        overlapping = np.lib.stride_tricks.as_strided(floats, (8, 3), (4, 4))
        self.assert_refused(
            vexmoor.VexmoorError, "positions of page 0 has a stride of 4, but elements of 12 bytes", overlapping)

    def test_a_camera_that_is_not_a_number_is_advised(self):
        with self.assertWarnsRegex(UserWarning, "The camera's y is not a number"):
            vexmoor.sort_points(random_positions(4), camera=(0, np.nan, 0))

    def test_findings_are_sentences_of_their_own(self):
        with self.assertRaises(vexmoor.VexmoorError) as caught:
            vexmoor.sort_points(random_positions(4), enabled=np.ones(5, np.uint8), pattern=(5,))
        self.assertEqual(caught.exception.findings,
            ["Page 0 renders 5 particles, but has positions for 4.",
                "Page 0 has enabled bytes for 5, but positions for 4.",
                "The index pattern's only entry is 5, but has to be 0."])
        self.assertTrue(str(caught.exception).startswith("A rule is broken"))


class Structure(unittest.TestCase):
    def test_it_is_the_librarys(self):
        self.assertEqual(ctypes.sizeof(vexmoor._Call), 16 * 4 + 13 * ctypes.sizeof(ctypes.c_void_p))


if __name__ == "__main__":
    unittest.main()
