//! Samples/languages/vexmoor.rs as its users call it: what is sorted, and that every wrong call comes back as an error
//! and writes nothing.

use vexmoor::{sort_points, Draw, Error, Page};

const QUAD: [u32; 6] = [0, 1, 2, 0, 2, 3];
const POSITIONS: [[f32; 3]; 4] = [[0.0, 0.0, 3.0], [0.0, 0.0, 9.0], [0.0, 0.0, 1.0], [0.0, 0.0, 5.0]];
const FARTHEST_FIRST: [u32; 4] = [1, 3, 0, 2];
const UNTOUCHED: u32 = 0xABCD;

fn packed(positions: &[[f32; 3]]) -> Page {
    Page::positions(positions, |position| position)
}

fn findings_of(error: Error) -> Vec<String> {
    match error {
        Error::Refused { findings, .. } => findings,
        Error::Slice(text) => panic!("not by the library: {}", text),
    }
}

/// What is said of a refused call, which has to have written nothing.
fn refused(pages: &[Page], draw: &Draw, room: usize) -> Error {
    let mut indices = vec![UNTOUCHED; room];
    let error = sort_points(pages, draw, &mut indices).unwrap_err();
    assert!(indices.iter().all(|&index| index == UNTOUCHED), "something was written");
    assert!(!error.to_string().is_empty());
    error
}

#[test]
fn positions_come_out_farthest_first() {
    let mut numbers = [UNTOUCHED; 5];
    assert_eq!(sort_points(&[packed(&POSITIONS)], &Draw::default(), &mut numbers), Ok(4));
    assert_eq!(numbers[..4], FARTHEST_FIRST);
    assert_eq!(numbers[4], UNTOUCHED);
}

#[test]
fn a_camera_is_where_it_is() {
    let mut numbers = [0u32; 4];
    let draw = Draw { camera: [0.0, 0.0, 9.0], ..Draw::default() };
    sort_points(&[packed(&POSITIONS)], &draw, &mut numbers).unwrap();
    assert_eq!(numbers, [2, 0, 3, 1]);
}

#[test]
fn a_pattern_is_drawn_for_each_particle() {
    let mut indices = [0u16; 24];
    let draw = Draw { pattern: &QUAD, ..Draw::default() };
    assert_eq!(sort_points(&[packed(&POSITIONS)], &draw, &mut indices), Ok(24));
    let expected: Vec<u16> =
        FARTHEST_FIRST
            .iter()
            .flat_map(|particle| QUAD.iter().map(move |entry| (particle * 4 + entry) as u16))
            .collect();
    assert_eq!(indices[..], expected[..]);
}

#[test]
fn values_come_out_lowest_first() {
    let values = [2.0f32, -7.0, f32::INFINITY, 0.5];
    let mut numbers = [0u32; 4];
    sort_points(&[Page::values(&values, |value| value)], &Draw::default(), &mut numbers).unwrap();
    assert_eq!(numbers, [1, 3, 0, 2]);
}

#[test]
fn keys_lie_inside_structures() {
    #[derive(Default)]
    struct Particle {
        _flags: u8,
        age: f32,
        position: [f32; 3],
        _name: [u16; 5],
    }
    let particles: Vec<Particle> =
        POSITIONS.iter().map(|&position| Particle { position, age: position[2], ..Particle::default() }).collect();
    let mut numbers = [0u32; 4];
    sort_points(&[Page::positions(&particles, |each| &each.position)], &Draw::default(), &mut numbers).unwrap();
    assert_eq!(numbers, FARTHEST_FIRST);
    sort_points(&[Page::values(&particles, |each| &each.age)], &Draw::default(), &mut numbers).unwrap();
    assert_eq!(numbers, [2, 0, 3, 1]);
}

#[test]
fn pages_are_numbered_through() {
    let mut numbers = [0u32; 4];
    let pages = [packed(&POSITIONS[..1]), packed(&[]), packed(&POSITIONS[1..])];
    sort_points(&pages, &Draw::default(), &mut numbers).unwrap();
    assert_eq!(numbers, FARTHEST_FIRST);
}

#[test]
fn disabled_particles_are_left_out() {
    let mut numbers = [UNTOUCHED; 4];
    let page = packed(&POSITIONS).enabled(&[1, 0, 255, 0]);
    assert_eq!(sort_points(&[page], &Draw::default(), &mut numbers), Ok(2));
    assert_eq!(numbers, [0, 1, UNTOUCHED, UNTOUCHED]);
}

#[test]
fn an_index_list_says_where_vertices_lie() {
    let mut indices = [0u32; 4];
    let draw = Draw { index_list: Some(&[70, 60, 50, 40]), ..Draw::default() };
    sort_points(&[packed(&POSITIONS)], &draw, &mut indices).unwrap();
    assert_eq!(indices, [60, 40, 70, 50]);
}

#[test]
fn no_particles_give_no_indices() {
    assert_eq!(sort_points::<u32>(&[packed(&[])], &Draw::default(), &mut []), Ok(0));
}

#[test]
fn not_a_number_is_farther_than_everything() {
    let mut positions = POSITIONS;
    positions[2][0] = f32::NAN;
    let mut numbers = [0u32; 4];
    sort_points(&[packed(&positions)], &Draw::default(), &mut numbers).unwrap();
    assert_eq!(numbers, [2, 1, 3, 0]);
}

#[test]
fn output_that_is_too_small_is_refused() {
    let draw = Draw { pattern: &QUAD, ..Draw::default() };
    for room in [0, 6, 23] {
        let text = format!("There is room for {} indices, but 24 are drawn.", room);
        assert_eq!(refused(&[packed(&POSITIONS)], &draw, room), Error::Slice(text));
    }
}

#[test]
fn a_key_outside_its_particle_is_refused() {
    static ELSEWHERE: [f32; 3] = [0.0; 3];
    let page = Page::positions(&POSITIONS, |_| &ELSEWHERE);
    assert!(matches!(refused(&[page], &Draw::default(), 4), Error::Slice(_)));
}

#[test]
fn keys_of_two_kinds_are_refused() {
    let pages = [packed(&POSITIONS), Page::values(&[1.0f32], |value| value)];
    assert!(matches!(refused(&pages, &Draw::default(), 8), Error::Slice(_)));
}

#[test]
fn no_pages_are_refused() {
    let text = "The page_count is 0, but a call has at least one page.".to_string();
    assert_eq!(refused(&[], &Draw::default(), 4), Error::Refused { text, findings: vec![] });
}

#[test]
fn enabled_bytes_of_another_count_are_refused() {
    let error = refused(&[packed(&POSITIONS).enabled(&[1, 1, 1])], &Draw::default(), 4);
    assert_eq!(findings_of(error), ["Page 0 has enabled bytes for 3, but positions for 4."]);
}

#[test]
fn an_index_list_that_is_too_short_is_refused() {
    for list in [&[1u32, 2, 3][..], &[]] {
        let error = refused(&[packed(&POSITIONS)], &Draw { index_list: Some(list), ..Draw::default() }, 4);
        let sentence = format!("The count of the index list is {}, but the particle count is 4.", list.len());
        assert_eq!(findings_of(error), [sentence]);
    }
}

#[test]
fn a_pattern_of_one_entry_other_than_0_is_refused() {
    let error = refused(&[packed(&POSITIONS)], &Draw { pattern: &[5], ..Draw::default() }, 4);
    assert_eq!(findings_of(error), ["The index pattern's only entry is 5, but has to be 0."]);
}

#[test]
fn indices_beyond_16_bits_are_refused() {
    let draw = Draw { pattern: &[0, 1, 2], index_list: Some(&[65533; 4]), ..Draw::default() };
    let mut indices = [0xABCDu16; 12];
    let error = sort_points(&[packed(&POSITIONS)], &draw, &mut indices).unwrap_err();
    assert_eq!(indices, [0xABCD; 12]);
    assert!(findings_of(error)[0].ends_with("indices of 16 bits end at 65534."));
}
