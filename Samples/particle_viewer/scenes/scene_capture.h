#pragma once

// A captured draw call as a scene: each primitive of an output as a mark where its particle is, in drawing order.
//
// These are exact: which particle a primitive draws, its number in the drawing order, its position, and the camera.
// Shapes and sizes only stand for the real ones, because a capture has no vertices. A call that is sorted by values and
// has no quad centres has no positions either; its particles lie in a chart, from left to right as in memory, and
// upwards by their values.

#include "vx_defs.h"

#include "captured_call.h"
#include "scene.h"
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// What stands for a primitive.
enum class EShape
{
	Triangles, ///< Those of its pattern, over the pattern's vertices on a ring around it.
	Quads,
	Points
};

/// "triangles", "quads" or "points".
const char *ShapeName(EShape shape);
/// The shape of this name, if there is one.
std::optional<EShape> FindShape(const std::string &name);
/// The next shape, and after the last one the first.
EShape NextShape(EShape shape);

constexpr u32 kAllPrimitives = 0xFFFFFFFFu;

/// How a captured call is looked at.
struct SCaptureLook
{
	EOrder m_Order = EOrder::Storage;
	EShape m_Shape = EShape::Triangles;
	u32 m_SizePercent = 100;
	u32 m_FirstCount = kAllPrimitives; ///< Primitives to draw, from the first one of the order on.
	bool m_ColoursAreOrder = true;     ///< Otherwise all have one colour. What differs is lit all the same.
};

class CCaptureScene final : public IScene
{
public:
	/// Replays the call unless that has been done.
	explicit CCaptureScene(const std::shared_ptr<CCapturedCall> &call);

	CCaptureScene *Capture() override { return this; }
	u32 WarmUpStepCount() const override { return 0; }
	void Advance() override {}
	/// The marks, as SetLook has chosen them.
	SFrame Frame() override;
	/// A call that breaks a rule has one order, that of its memory.
	std::vector<SPictureOfOrder> Pictures() const override;

	void SetLook(const SCaptureLook &look);
	/// The frame's indices.
	std::vector<u32> Indices() const;

	const CCapturedCall &Call() const { return *m_Call; }
	bool IsBroken() const { return !m_Call->Result().m_Sorted; }
	/// What was drawn: by the host if the order is Recorded, otherwise by this machine.
	const SDrawnOutput &OutputOf(EOrder order) const;
	/// How many primitives an order draws.
	u32 Count(EOrder order) const;
	/// A primitive by its number in an order; without an index where the order is that of memory. Of a call that breaks
	/// a rule, particles are primitives.
	SDrawnPrimitive At(EOrder order, u32 number) const;
	/// Where a primitive of an order is drawn; nothing where its position is not finite. A lost one is drawn where the
	/// primitive is that this machine draws in its place.
	std::optional<CFloat3> PlaceOf(EOrder order, u32 number) const;
	/// How many primitives of an order are drawn nowhere, because their positions are not finite.
	u32 UnplacedCount(EOrder order) const;
	/// Where there are too many to draw: the number of the first that is drawn.
	u32 FirstDrawn() const { return m_FirstDrawn; }

	bool IsChart() const { return m_IsChart; }
	/// Whether the camera is the call's own.
	bool HasCamera() const { return m_HasCamera; }

private:
	typedef std::unordered_map<u32, u32> CRing; // the vertices of a pattern, and the place of each

	void CollectPlaces();
	void PlaceInChart();
	void SetCamera();
	std::optional<CFloat3> PlaceOfPrimitive(u32 primitive) const;
	u32 MostVertices() const;
	void BuildMarks();
	void AddMark(u32 number);
	void AddSquare(const CFloat3 &place, float radius, u32 colour, bool isRound);
	void AddTriangles(const CFloat3 &place, float radius, u32 colour, const SCapturedPrimitive &primitive);
	const CRing &RingOf(const SCapturedPrimitive &primitive);

	std::shared_ptr<CCapturedCall> m_Call;
	bool m_HasQuads = false; // a place for each primitive; otherwise for each particle
	bool m_IsChart = false;
	bool m_HasCamera = false;
	std::vector<CFloat3> m_Places;
	std::vector<CFloat3> m_FinitePlaces;
	std::map<EOrder, u32> m_UnplacedCounts;
	SCamera m_Camera;
	float m_Radius = 0.0f; // of a mark
	std::unordered_map<const u32 *, CRing> m_Rings;

	SCaptureLook m_Look;
	bool m_IsBuilt = false;
	u32 m_FirstDrawn = 0;
	std::vector<SMark> m_Marks;
	std::vector<u32> m_Indices;
	std::vector<u32> m_IndexEnds; // of each primitive from the first that is drawn on

	u32 m_Triangle[3] = {0, 1, 2};
	TStridedMemoryView<const CFloat3> m_PlacePage;
	TStridedMemoryView<const u8> m_AllEnabled;
	u32 m_PlaceCount = 0;
};
} // namespace Viewer
