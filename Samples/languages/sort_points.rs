//! Sorts particles that lie in structures of their own into an index buffer of quads.

use vexmoor::{sort_points, Draw, Page};

struct Particle {
    _age: f32,
    position: [f32; 3],
}

fn main() -> Result<(), vexmoor::Error> {
    let particles: Vec<Particle> = [3.0, 9.0, 1.0, 5.0]
        .iter()
        .map(|&distance| Particle { _age: 0.0, position: [0.0, 0.0, distance] })
        .collect();
    let page = Page::positions(&particles, |particle| &particle.position);
    let draw = Draw { pattern: &[0, 1, 2, 0, 2, 3], ..Draw::default() }; // the camera is at 0, 0, 0

    let mut indices = vec![0u32; particles.len() * 6]; // or memory that a graphics library has mapped
    sort_points(&[page], &draw, &mut indices)?;

    let drawn: Vec<u32> = indices.chunks(6).map(|quad| quad[0] / 4).collect();
    println!("drawn in this order: {:?}", drawn);
    assert_eq!(drawn, [1, 3, 0, 2]);
    Ok(())
}
