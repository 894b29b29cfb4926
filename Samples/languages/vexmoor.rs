//! The sorter for Rust, through vexmoor.h, without a crate.
//!
//! ```text
//! let pages = [Page::positions(&particles, |particle| &particle.position)];
//! sort_points(&pages, &Draw { camera: [0.0, 0.0, 10.0], pattern: &[0, 1, 2, 0, 2, 3], ..Draw::default() }, &mut
//! indices)?;
//! ```
//!
//! Particles are read in any structures, and indices are written into the caller's slice, so nothing is copied. Every
//! call is checked, so a wrong one returns an error and writes nothing. Indices are `u32` or `u16`.

use std::ffi::{c_void, CStr};
use std::fmt;
use std::marker::PhantomData;
use std::mem::size_of;
use std::os::raw::c_char;
use std::ptr::{null, null_mut};

#[repr(C)]
#[derive(Clone, Copy)]
struct View {
    data: *const c_void,
    count: u32,
    stride: u32,
}

/// The fields of vexmoor_call.
#[repr(C)]
struct Call {
    struct_size: u32,
    index_size: u32,
    indices: *mut c_void,
    index_capacity: u32,
    vertex_count: u32,
    positions: *const View,
    values: *const View,
    enabled: *const View,
    rendered_counts: *const u32,
    page_count: u32,
    particle_count: u32,
    camera_position: [f32; 3],
    vertices_per_particle: u32,
    pattern: *const u32,
    index_list: *const u32,
    quad_centers: *const f32,
    pattern_count: u32,
    index_list_count: u32,
    quad_center_count: u32,
    triangle_index_count: u32,
    page_patterns: *const c_void,
    page_vertex_counts: *const u32,
    working_buffer: *mut c_void,
    working_buffer_size: usize,
    jobs: *const c_void,
    output_memory: u32,
    reserved: u32,
}

/// A slice is ordinary memory.
const OUTPUT_CACHED: u32 = 1;

type FindingHandler = extern "C" fn(user_data: *mut c_void, kind: i32, sentence: *const c_char);

#[link(name = "vx_geometrics")]
extern "C" {
    fn vexmoor_result_text(result: i32) -> *const c_char;
    fn vexmoor_sort_checked(call: *const Call, handler: Option<FindingHandler>, user_data: *mut c_void) -> i32;
}

/// Why nothing was written.
#[derive(Debug, PartialEq)]
pub enum Error {
    /// What only this side can see: a slice that does not fit.
    Slice(String),
    /// What the library refuses: its sentence, and one for each broken rule.
    Refused { text: String, findings: Vec<String> },
}

impl fmt::Display for Error {
    fn fmt(&self, formatter: &mut fmt::Formatter) -> fmt::Result {
        match self {
            Error::Slice(text) => formatter.write_str(text),
            Error::Refused { text, findings } => write!(formatter, "{} {}", text, findings.join(" ")),
        }
    }
}

impl std::error::Error for Error {}

/// The particles of a page, and which of them are drawn.
#[derive(Clone, Copy)]
pub struct Page<'a> {
    source: View,
    by_position: bool,
    fits: bool,
    enabled: Option<&'a [u8]>,
    particles: PhantomData<&'a ()>,
}

impl<'a> Page<'a> {
    /// Sorted by distance, the farthest first. position tells where in a particle its position lies.
    pub fn positions<T>(particles: &'a [T], position: impl Fn(&T) -> &[f32; 3]) -> Self {
        Self::new(particles, |particle| position(particle) as *const _ as usize, size_of::<[f32; 3]>(), true)
    }

    /// Sorted by value, the lowest first.
    pub fn values<T>(particles: &'a [T], value: impl Fn(&T) -> &f32) -> Self {
        Self::new(particles, |particle| value(particle) as *const _ as usize, size_of::<f32>(), false)
    }

    /// Draws the particles whose byte is not 0.
    pub fn enabled(self, bytes: &'a [u8]) -> Self {
        Page { enabled: Some(bytes), ..self }
    }

    fn new<T>(particles: &'a [T], address_of: impl Fn(&T) -> usize, size: usize, by_position: bool) -> Self {
        let offset = particles.first().map_or(0, |first| address_of(first).wrapping_sub(first as *const T as usize));
        let lies_inside = particles.is_empty() || offset <= size_of::<T>().wrapping_sub(size) && size <= size_of::<T>();
        let source = View {
            data: (particles.as_ptr() as usize).wrapping_add(offset) as *const c_void,
            count: particles.len() as u32,
            stride: size_of::<T>() as u32,
        };
        let fits = lies_inside && particles.len() <= u32::MAX as usize && size_of::<T>() <= u32::MAX as usize;
        Page { source, by_position, fits, enabled: None, particles: PhantomData }
    }

    fn drawn_count(&self) -> u32 {
        self.enabled.map_or(self.source.count, |bytes| bytes.iter().filter(|&&byte| byte != 0).count() as u32)
    }
}

/// What is drawn for each particle. The default draws its number.
#[derive(Clone, Copy, Default)]
pub struct Draw<'a> {
    pub camera: [f32; 3],
    /// Indices relative to a particle's first vertex; none: one index, 0.
    pub pattern: &'a [u32],
    /// 0: the pattern's largest index, plus 1.
    pub vertices_per_particle: u32,
    /// 0: as many as indices can address.
    pub vertex_count: u32,
    /// The first vertex of each particle that is drawn.
    pub index_list: Option<&'a [u32]>,
}

pub trait Index {}
impl Index for u32 {}
impl Index for u16 {}

extern "C" fn collect(user_data: *mut c_void, kind: i32, sentence: *const c_char) {
    const VIOLATION: i32 = 0;
    if kind == VIOLATION {
        // SAFETY: user_data is the vector that sort_points lends for the time of the call, and sentences end with a 0.
        let (findings, sentence) = unsafe { (&mut *(user_data as *mut Vec<String>), CStr::from_ptr(sentence)) };
        findings.push(sentence.to_string_lossy().into_owned());
    }
}

/// Sorts particles and writes the indices that draw them. Returns how many there are.
pub fn sort_points<I: Index>(pages: &[Page], draw: &Draw, indices: &mut [I]) -> Result<usize, Error> {
    let by_position = pages.first().map_or(true, |page| page.by_position);
    if pages.iter().any(|page| page.by_position != by_position) {
        return Err(Error::Slice("Either all pages are sorted by position or none.".into()));
    }
    if pages.iter().any(|page| !page.fits) {
        return Err(Error::Slice("A key lies outside its particle, or a page has too many.".into()));
    }
    let sources: Vec<View> = pages.iter().map(|page| page.source).collect();
    let enabled: Vec<View> = pages.iter().map(|page| view_of(page.enabled.unwrap_or(&[]))).collect();
    let counts: Vec<u32> = pages.iter().map(Page::drawn_count).collect();
    let drawn_count: usize = counts.iter().map(|&count| count as usize).sum();
    let needed = drawn_count * draw.pattern.len().max(1);
    let all_fit = [indices.len(), pages.len(), draw.pattern.len(), draw.index_list.map_or(0, |list| list.len())]
        .iter()
        .all(|&len| len <= u32::MAX as usize);
    if indices.len() < needed || !all_fit {
        let room = indices.len();
        return Err(Error::Slice(format!("There is room for {} indices, but {} are drawn.", room, needed)));
    }

    let pointer_to = |is_used: bool, views: &[View]| if is_used { views.as_ptr() } else { null() };
    let call = Call {
        struct_size: size_of::<Call>() as u32,
        index_size: size_of::<I>() as u32,
        indices: indices.as_mut_ptr() as *mut c_void,
        index_capacity: indices.len() as u32,
        vertex_count: draw.vertex_count,
        positions: pointer_to(by_position, &sources),
        values: pointer_to(!by_position, &sources),
        enabled: enabled.as_ptr(),
        rendered_counts: counts.as_ptr(),
        page_count: pages.len() as u32,
        particle_count: 0,
        camera_position: draw.camera,
        vertices_per_particle: draw.vertices_per_particle,
        pattern: if draw.pattern.is_empty() { null() } else { draw.pattern.as_ptr() },
        index_list: draw.index_list.map_or(null(), |list| list.as_ptr()),
        quad_centers: null(),
        pattern_count: draw.pattern.len() as u32,
        index_list_count: draw.index_list.map_or(0, |list| list.len() as u32),
        quad_center_count: 0,
        triangle_index_count: 0,
        page_patterns: null(),
        page_vertex_counts: null(),
        working_buffer: null_mut(), // the library takes one and gives it back
        working_buffer_size: 0,
        jobs: null(),
        output_memory: OUTPUT_CACHED,
        reserved: 0,
    };
    let mut findings: Vec<String> = Vec::new();
    // SAFETY: every pointer is a slice's, with the slice's length, and the library checks all that it can be told.
    let result = unsafe { vexmoor_sort_checked(&call, Some(collect), &mut findings as *mut _ as *mut c_void) };
    if result != 0 {
        // SAFETY: a result's text lives as long as the library.
        let text = unsafe { CStr::from_ptr(vexmoor_result_text(result)) }.to_string_lossy().into_owned();
        return Err(Error::Refused { text, findings });
    }
    Ok(needed)
}

fn view_of(bytes: &[u8]) -> View {
    View { data: bytes.as_ptr() as *const c_void, count: bytes.len() as u32, stride: 1 }
}
