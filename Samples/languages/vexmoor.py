"""The sorter for Python with numpy, through ctypes and vexmoor.h.

    indices = vexmoor.sort_points(positions, camera=(0, 0, 10), pattern=(0, 1, 2, 0, 2, 3))

Arrays are read at any stride, and indices are written into the caller's array, if one is given, so nothing is copied.
Every call is checked, so a wrong one raises an exception and writes nothing. Other threads of Python run while a sort
runs. If the loader does not find the shared library, the environment variable VEXMOOR_LIBRARY names it.
"""

import ctypes
import operator
import os
import warnings

import numpy as np

MAX_COUNT = 0xFFFFFFFF


class VexmoorError(Exception):
    """A call that the library refuses. findings has a sentence for each broken rule."""

    def __init__(self, result, text, findings):
        super().__init__(" ".join([text, *findings]))
        self.result = result
        self.findings = findings


class _View(ctypes.Structure):
    _fields_ = [("data", ctypes.c_void_p), ("count", ctypes.c_uint32), ("stride", ctypes.c_uint32)]


# The fields of vexmoor_call. Any at the end that this file does not need could be left out: struct_size says so.
class _Call(ctypes.Structure):
    _fields_ = [
        ("struct_size", ctypes.c_uint32),
        ("index_size", ctypes.c_uint32),
        ("indices", ctypes.c_void_p),
        ("index_capacity", ctypes.c_uint32),
        ("vertex_count", ctypes.c_uint32),
        ("positions", ctypes.POINTER(_View)),
        ("values", ctypes.POINTER(_View)),
        ("enabled", ctypes.POINTER(_View)),
        ("rendered_counts", ctypes.POINTER(ctypes.c_uint32)),
        ("page_count", ctypes.c_uint32),
        ("particle_count", ctypes.c_uint32),
        ("camera_position", ctypes.c_float * 3),
        ("vertices_per_particle", ctypes.c_uint32),
        ("pattern", ctypes.c_void_p),
        ("index_list", ctypes.c_void_p),
        ("quad_centers", ctypes.c_void_p),
        ("pattern_count", ctypes.c_uint32),
        ("index_list_count", ctypes.c_uint32),
        ("quad_center_count", ctypes.c_uint32),
        ("triangle_index_count", ctypes.c_uint32),
        ("page_patterns", ctypes.c_void_p),
        ("page_vertex_counts", ctypes.c_void_p),
        ("working_buffer", ctypes.c_void_p),
        ("working_buffer_size", ctypes.c_size_t),
        ("jobs", ctypes.c_void_p),
        ("output_memory", ctypes.c_uint32),
        ("reserved", ctypes.c_uint32),
    ]


_OUTPUT_CACHED = 1  # arrays of numpy are ordinary memory


_FindingHandler = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int32, ctypes.c_char_p)
_VIOLATION = 0

_library = ctypes.CDLL(os.environ.get("VEXMOOR_LIBRARY", "libvx_geometrics.so.1"))
_library.vexmoor_result_text.restype = ctypes.c_char_p
_library.vexmoor_result_text.argtypes = [ctypes.c_int32]
_library.vexmoor_working_buffer_size.argtypes = [ctypes.POINTER(_Call), ctypes.POINTER(ctypes.c_size_t)]
_library.vexmoor_sort_checked.argtypes = [ctypes.POINTER(_Call), _FindingHandler, ctypes.c_void_p]


def _raise_unless_ok(result, findings=()):
    if result != 0:
        raise VexmoorError(result, _library.vexmoor_result_text(result).decode(), list(findings))


def _view(name, array, dtype, shape):
    """A page as it lies in memory, whatever its stride from particle to particle."""
    if not isinstance(array, np.ndarray) or array.dtype != dtype:
        given = getattr(array, 'dtype', type(array).__name__)
        raise TypeError(f"{name} are an array of {np.dtype(dtype)}, not {given}")
    if array.ndim != 1 + len(shape) or array.shape[1:] != shape:
        raise ValueError(f"{name} have the shape {('n', *shape)}, not {array.shape}")
    if shape and array.size != 0 and array.strides[1] != array.itemsize:
        raise ValueError(f"the {shape[0]} numbers of each of the {name} have to lie side by side")
    stride = array.strides[0]
    if not 0 <= stride <= MAX_COUNT or len(array) > MAX_COUNT:
        raise ValueError(f"{name} have to lie in ascending order, with strides and counts of 32 bits")
    return _View(array.ctypes.data, len(array), stride)


def _number(name, number):
    if not 0 <= operator.index(number) <= MAX_COUNT:
        raise ValueError(f"{name} is a number of 32 bits, not {number}")
    return number


def _pattern(entries):
    pattern = np.asarray(entries)
    if pattern.dtype.kind not in "iu" or pattern.ndim != 1:
        raise TypeError("a pattern is a sequence of whole numbers")
    if pattern.size != 0 and not (0 <= pattern.min() and pattern.max() <= MAX_COUNT):
        raise ValueError("a pattern has numbers of 32 bits")
    return np.ascontiguousarray(pattern, np.uint32)


def _pages(arrays):
    return [arrays] if isinstance(arrays, np.ndarray) else list(arrays)


def _contiguous(name, array, dtypes):
    if not isinstance(array, np.ndarray) or array.dtype not in dtypes:
        raise TypeError(f"{name} is an array of {' or '.join(map(str, map(np.dtype, dtypes)))}")
    if array.ndim != 1 or not array.flags.c_contiguous:
        raise ValueError(f"{name} has one dimension and no gaps")
    if len(array) > MAX_COUNT:
        raise ValueError(f"{name} has at most {MAX_COUNT} elements")
    return array


def _aligned_bytes(size):
    memory = np.empty(size + 15, np.uint8)
    start = -memory.ctypes.data % 16
    return memory[start : start + size]


def sort_points(positions=None, *, values=None, enabled=None, camera=(0.0, 0.0, 0.0), pattern=(0,),
                vertices_per_particle=0, vertex_count=0, index_list=None, out=None):
    """Sorts particles back to front and returns the indices that draw them.

    positions   float32 of shape (n, 3), farthest from the camera first; or a list of such arrays, one for each page
    values      float32 of shape (n,) in place of positions, lowest first; or a list
    enabled     uint8 or bool of shape (n,): 0 leaves a particle out; or a list
    pattern     the indices that a particle draws, relative to its first vertex; (0,): particles' numbers come out
    index_list  uint32, the first vertex of each particle that is drawn
    out         uint32 or uint16 of shape (m,), with room for all indices; a part of it is returned
    Advice of the library's is a warning of Python's.
    """
    if (positions is None) == (values is None):
        raise TypeError("either positions or values are sorted by")
    x, y, z = camera
    call = _Call(struct_size=ctypes.sizeof(_Call), camera_position=(x, y, z),
        vertices_per_particle=_number("vertices_per_particle", vertices_per_particle),
        vertex_count=_number("vertex_count", vertex_count))

    pages = _pages(positions if positions is not None else values)
    if positions is not None:
        views = [_view("positions", page, np.float32, (3,)) for page in pages]
    else:
        views = [_view("values", page, np.float32, ()) for page in pages]
    page_array = (_View * len(views))(*views)
    setattr(call, "positions" if positions is not None else "values", page_array)
    call.page_count = len(views)
    drawn_count = sum(view.count for view in views)
    if enabled is not None:
        bytes_of_pages = [
            page.view(np.uint8) if getattr(page, "dtype", None) == bool else page for page in _pages(enabled)
        ]
        if len(bytes_of_pages) != len(views):
            raise ValueError(f"there are {len(views)} pages, but enabled bytes for {len(bytes_of_pages)}")
        enabled_array = (_View * len(views))(*[_view("enabled bytes", page, np.uint8, ()) for page in bytes_of_pages])
        counts = [np.count_nonzero(page) for page in bytes_of_pages]
        count_array = (ctypes.c_uint32 * len(views))(*counts)
        call.enabled, call.rendered_counts = enabled_array, count_array
        drawn_count = sum(counts)

    pattern = _pattern(pattern)
    call.pattern, call.pattern_count = pattern.ctypes.data, len(pattern)
    if index_list is not None:
        _contiguous("the index list", index_list, (np.uint32,))
        call.index_list, call.index_list_count = index_list.ctypes.data, len(index_list)

    needed = drawn_count * len(pattern)
    if out is None:
        out = np.empty(needed, np.uint32)
    _contiguous("out", out, (np.uint32, np.uint16))
    if not out.flags.writeable:
        raise ValueError("out is read-only")
    if len(out) < needed:
        raise ValueError(f"out has room for {len(out)} indices, but {needed} are drawn")
    call.indices, call.index_capacity, call.index_size = out.ctypes.data, len(out), out.itemsize
    call.output_memory = _OUTPUT_CACHED

    size = ctypes.c_size_t()
    _raise_unless_ok(_library.vexmoor_working_buffer_size(call, size))
    working_buffer = _aligned_bytes(max(size.value, 16))
    call.working_buffer, call.working_buffer_size = working_buffer.ctypes.data, working_buffer.size

    violations, advice = [], []
    handler = _FindingHandler(
        lambda _, kind, sentence: (violations if kind == _VIOLATION else advice).append(sentence.decode()))
    _raise_unless_ok(_library.vexmoor_sort_checked(call, handler, None), violations)
    for sentence in advice:
        warnings.warn(sentence, stacklevel=2)
    return out[:needed]
