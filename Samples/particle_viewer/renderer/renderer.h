#pragma once

// Draws frames of transparent particles in the order that an index buffer gives. It takes a current OpenGL 4.5 context
// and does not know where that came from; it draws to a framebuffer of its own.

#include "vx_defs.h"

#include "cloud_buffers.h"
#include "colour.h"
#include "index_ring.h"
#include "picture.h"
#include "scene.h"
#include "sort_frame.h"
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// What a draw read of the index memory. It can be read back until index memory is mapped again.
struct SDrawn
{
	u64 m_OffsetInBytes = 0;
	std::vector<SDrawCall> m_DrawCalls;
};

/// What a framebuffer shows, once the GPU has finished it; 0 is the window that is current.
SPicture ReadFramebuffer(u32 framebuffer, u32 width, u32 height);

/// A linked program, and where its uniforms are, asked for once. Those that it does not have are at -1, and OpenGL
/// ignores what is set there.
struct SProgram
{
	u32 m_Program = 0;

	s32 m_WorldToClip = -1;
	s32 m_Right = -1;
	s32 m_Up = -1;
	s32 m_Eye = -1;
	s32 m_HalfPicture = -1;
	s32 m_PointRadius = -1;
	s32 m_HarmonicWords = -1;
	s32 m_Colouring = -1;
	s32 m_TriangleCount = -1;
	s32 m_FirstTriangle = -1;
	s32 m_Samples = -1;
	s32 m_MostLayers = -1;
	s32 m_ScreenColours = -1;
};

class CRenderer
{
public:
	/// The context that is current now stays current for every call, and for the destructor.
	CRenderer(u32 width, u32 height);
	~CRenderer();
	CRenderer(const CRenderer &) = delete;
	CRenderer &operator=(const CRenderer &) = delete;

	/// Pictures of another size, from the next frame on.
	void SetSize(u32 width, u32 height);

	/// Takes a frame's vertices and camera for the draws to come.
	void SetFrame(const SFrame &frame);

	/// What the colours of the draws to come stand for: light unless set, and light for errors.
	void SetColour(EColour colour) { m_Colour = colour; }
	/// The most layers over any pixel of the last draw that showed overdraw; never less than 2.
	u32 MostLayers() const { return m_MostLayers; }

	/// Mapped index memory for one draw: written by the caller, front to back, and never read.
	u8 *MapIndices(u64 sizeInBytes);
	/// Draws the frame over the background, with the indices that were written.
	SDrawn Draw(const std::vector<SDrawCall> &drawCalls);

	u32 Width() const { return m_Width; }
	/// Keeps the picture of the last draw beside those that follow, until the size changes; or a picture of that size.
	void KeepPicture();
	void KeepPicture(const SPicture &picture);
	/// Puts columns of what was kept over the picture of the last draw.
	void ShowKept(u32 firstColumn, u32 endColumn);

	/// Copies the picture of the last draw to the lower left corner of the window that is current.
	void ShowPicture();
	/// The picture of the last draw, once the GPU has finished it.
	SPicture ReadPicture();
	/// The indices of a draw as the GPU has them, draw call after draw call, base vertices added.
	std::vector<u32> ReadIndices(const SDrawn &drawn);

private:
	const SProgram &ParticleProgram() const;
	void SetCloud(const SFrame &frame);
	void CreateTargets();
	void CreateSprites();
	void CreateKept();
	void DrawBackground();
	void DrawParticles(const std::vector<SDrawCall> &drawCalls);
	void FindMostLayers();
	void Resolve();

	u32 m_Width = 0;
	u32 m_Height = 0;
	u32 m_Samples = 0; // per pixel and axis: meshes, bands and marks have edges to smooth

	u32 m_LightTexture = 0; // light before tone mapping
	u32 m_LightTarget = 0;
	u32 m_PictureTexture = 0;
	u32 m_PictureTarget = 0;
	u32 m_KeptTexture = 0;
	u32 m_KeptTarget = 0;

	u32 m_Sprites = 0;
	u32 m_EmptyVertexArray = 0; // vertices come from a storage buffer
	u32 m_VertexBuffer = 0;
	u64 m_VertexBufferSize = 0;
	u64 m_MaxVertexBufferSize = 0;
	EVertices m_VertexKind = EVertices::Billboards;
	EColour m_Colour = EColour::Light;
	u32 m_MostLayers = 2;

	CCloudBuffers m_Cloud;

	SProgram m_BackgroundProgram;
	SProgram m_BillboardProgram;
	SProgram m_MeshProgram;
	SProgram m_BandProgram;
	SProgram m_MarkProgram;
	SProgram m_CloudProgram;
	SProgram m_ResolveProgram;

	CIndexRing m_Ring;
};
} // namespace Viewer
