#pragma once

// What the viewer draws: a scene simulates particles in pages, and describes every frame twice, once for the sorter and
// once for the renderer. The rest of the viewer, which sorts, draws and measures, knows no particular scene.

#include "ge_mesh_triangle_sorter.h"

#include "vx_defs.h"

#include "camera.h"
#include <memory>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// A particle that faces the camera. Four vertices of an index buffer, 4 r to 4 r + 3, are the corners of billboard r.
struct SBillboard
{
	CFloat3 m_Position;
	float m_Radius;
	CFloat4 m_Colour; ///< Premultiplied, linear light; the alpha may be less than the light, for what glows.
	float m_Cosine;   ///< The sprite's rotation.
	float m_Sine;
	float m_Sprite;   ///< Layer of the sprite texture.
	float m_Slimness; ///< From 0, as wide as high, towards 1, a line.
};
static_assert(sizeof(SBillboard) == 48, "three vectors of the shader's layout");

/// A vertex of a mesh particle. Faces are flat: the shader finds their normals.
struct SMeshVertex
{
	CFloat3 m_Position;
	float m_Shine;    ///< How much of the surroundings a face mirrors.
	CFloat4 m_Colour; ///< Not premultiplied, linear light.
};
static_assert(sizeof(SMeshVertex) == 32, "two vectors of the shader's layout");

/// A vertex of a band: a strip along a line, turned towards the camera as it is drawn.
struct SBandVertex
{
	CFloat3 m_Position;  ///< On the line.
	float m_Across;      ///< -1 at one edge of the band, 1 at the other.
	CFloat3 m_Direction; ///< Of the line, of any length.
	float m_HalfWidth;
	CFloat4 m_Colour; ///< Premultiplied, linear light; the alpha may be less than the light, for what glows.
};
static_assert(sizeof(SBandVertex) == 48, "three vectors of the shader's layout");

/// A vertex of a mark: a flat shape around a position, which faces the camera.
struct SMark
{
	CFloat3 m_Position;
	u32 m_Colour;         ///< Red in the lowest byte, then green, blue, alpha; as a screen has them.
	float m_Offset[2];    ///< From the position to the right and upwards.
	float m_Roundness[2]; ///< From -1 to 1 across a disc, of which nothing beyond 1 is drawn; 0 where all is.
};
static_assert(sizeof(SMark) == 32, "two vectors of the shader's layout");

struct SPointCloud;

enum class EVertices
{
	Billboards,
	Mesh,
	Bands,
	Cloud,
	Marks
};

/// One frame. Everything viewed stays valid until the scene advances or is asked for another frame.
struct SFrame
{
	SCamera m_Camera;

	// For the sorter: the page cache, and one pattern for all particles or one for each page.
	CTriangleSorter::CPositionPages m_Positions;
	CTriangleSorter::CEnabledPages m_Enableds;
	CTriangleSorter::CRenderedCounts m_RenderedCounts;
	u32 m_ParticleCount = 0;
	TMemoryView<u32> m_IndexPattern; ///< Empty: geometry per page.
	u32 m_VerticesPerParticle = 0;
	/// The first vertex of each rendered particle, in storage order. Empty: vertices lie as the particles do.
	TMemoryView<const u32> m_IndexList;
	/// With an index list, for patterns of several quads: the centre of each quad, in 16 slots per particle.
	TMemoryView<const CFloat4> m_QuadCentres;
	TMemoryView<const CTriangleSorter::CIndexPattern> m_PagePatterns;
	TMemoryView<const u32> m_PageVerticesPerParticle;

	/// A value per particle for the order ByProperty, where the scene has one to sort by: a particle is one primitive
	/// then, and none is disabled.
	CTriangleSorter::CSortKeyPages m_SortValues;

	/// The middle of every triangle, for a scene that can be sorted by them: three vertices of its own each, in
	/// storage order.
	TMemoryView<const CFloat3> m_TriangleCentres;

	// For the renderer: the vertices of the rendered particles, in storage order or where the index list says.
	EVertices m_VertexKind = EVertices::Billboards;
	TMemoryView<const SBillboard> m_Billboards;
	TMemoryView<const SMeshVertex> m_MeshVertices;
	TMemoryView<const SBandVertex> m_BandVertices;
	TMemoryView<const SMark> m_Marks;
	const SPointCloud *m_Cloud = null; ///< A vertex per point. The same cloud has the same points.
	u32 m_VertexCount = 0;
};

/// The order in which a picture's primitives are drawn.
enum class EOrder
{
	Storage,    ///< As the particles lie in their pages.
	ByPosition, ///< Sorted by the distance keys that the sorter makes from positions.
	ByValue,    ///< Sorted by values of 0 - squared distance, quads inside a particle as well.
	WholeTubes, ///< The same, but quads inside a particle lie as the pattern has them.
	ByProperty, ///< Sorted by the scene's own values.
	ByTriangle, ///< Triangle by triangle, by the distance of their middles.
	Replayed,   ///< Of a captured call: as it is sorted here.
	Recorded    ///< Of a captured call: as its host has drawn it.
};

struct SPictureOfOrder
{
	EOrder m_Order;
	const char *m_FileName;
	const char *m_Label;
};

class CCaptureScene;

class IScene
{
public:
	virtual ~IScene() = default;

	/// The scene, if it is a captured draw call. Such a scene is one frame, which is drawn with indices of its own.
	virtual CCaptureScene *Capture() { return null; }

	/// Steps until the scene looks as it goes on looking.
	virtual u32 WarmUpStepCount() const = 0;
	virtual void Advance() = 0;
	virtual SFrame Frame() = 0;
	/// The orders worth seeing, the one that is right last: frames are sorted and timed in that one.
	virtual std::vector<SPictureOfOrder> Pictures() const = 0;
};

std::unique_ptr<IScene> CreateSmokeScene(u32 particleCount, u32 seed);
std::unique_ptr<IScene> CreateDebrisScene(u32 particleCount, u32 seed);
std::unique_ptr<IScene> CreateInterleaveScene(u32 particleCount, u32 seed);
std::unique_ptr<IScene> CreateSparksScene(u32 particleCount, u32 seed);
std::unique_ptr<IScene> CreateTubesScene(u32 particleCount, u32 seed);
std::unique_ptr<IScene> CreateRainScene(u32 particleCount, u32 seed);
} // namespace Viewer
