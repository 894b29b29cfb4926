// Places are computed once. Marks are made again whenever their look changes.

#include "scene_capture.h"

#include "cloud_fit.h"
#include "colour.h"
#include <algorithm>
#include <cmath>
#include <limits>

namespace Viewer
{
namespace
{
	constexpr u32 kMostMarks = 4000000; // vertices: what software drivers have room for

	constexpr const char *kShapeNames[] = {"triangles", "quads", "points"}; // in the order of EShape
	constexpr u32 kShapeCount = 3;

	constexpr SRgb kPlain = {0.62f, 0.68f, 0.74f};
	constexpr SRgb kUnsorted = {0.50f, 0.50f, 0.50f};
	constexpr SRgb kDifferent = {1.00f, 0.16f, 0.72f};
	constexpr SRgb kWhite = {1.00f, 1.00f, 1.00f};

	u32 Packed(const SRgb &colour)
	{
		const auto byte = [](float channel) { return u32(channel * 255.0f + 0.5f); };
		return byte(colour.m_Red) | byte(colour.m_Green) << 8 | byte(colour.m_Blue) << 16 | 0xFF000000u;
	}

	bool IsFinite(const CFloat3 &place)
	{
		return std::isfinite(place.x()) && std::isfinite(place.y()) && std::isfinite(place.z());
	}

	// Places on a ring for the vertices of a pattern. A triangle that shares an edge of the ring puts its third vertex
	// between the two, so that triangles of a polygon, however it is cut, do not overlap. The first vertices have such
	// places, and more lie as they come.
	std::unordered_map<u32, u32> RingOfPattern(const TMemoryView<const u32> &pattern)
	{
		constexpr size_t kMostInserted = 64;
		std::vector<u32> ring;
		std::unordered_map<u32, u32> places;
		for (u32 i = 0; i < pattern.Count() / 3 * 3; ++i) // behind the last triangle nothing is drawn
		{
			if (!places.try_emplace(pattern[i], 0).second)
				continue;
			const u32 first = i / 3 * 3;
			const u32 a = pattern[first + (i + 1 - first) % 3];
			const u32 b = pattern[first + (i + 2 - first) % 3];
			auto at = ring.end();
			for (size_t j = 0; j < ring.size() && ring.size() < kMostInserted; ++j)
			{
				const u32 next = ring[(j + 1) % ring.size()];
				if ((ring[j] == a && next == b) || (ring[j] == b && next == a))
					at = ring.begin() + std::ptrdiff_t(j + 1);
			}
			ring.insert(at, pattern[i]);
		}
		for (u32 place = 0; place < ring.size(); ++place)
			places[ring[place]] = place;
		return places;
	}
} // namespace

const char *ShapeName(EShape shape)
{
	return kShapeNames[u32(shape)];
}

std::optional<EShape> FindShape(const std::string &name)
{
	for (u32 shape = 0; shape < kShapeCount; ++shape)
		if (name == kShapeNames[shape])
			return EShape(shape);
	return std::nullopt;
}

EShape NextShape(EShape shape)
{
	return EShape((u32(shape) + 1) % kShapeCount);
}

CCaptureScene::CCaptureScene(const std::shared_ptr<CCapturedCall> &call)
	: m_Call(call)
{
	if (!m_Call->IsReplayed())
		m_Call->Replay();
	CollectPlaces();
	if (m_IsChart)
		PlaceInChart();
	else
		SetCamera();
	for (const CFloat3 &place : m_Places)
		if (IsFinite(place))
			m_FinitePlaces.push_back(place);
	m_PlaceCount = u32(m_FinitePlaces.size());
	m_PlacePage = TMemoryView<const CFloat3>(m_FinitePlaces.data(), m_PlaceCount);
	for (const SPictureOfOrder &picture : Pictures())
		for (u32 number = 0; number < Count(picture.m_Order); ++number)
			m_UnplacedCounts[picture.m_Order] += PlaceOf(picture.m_Order, number) ? 0 : 1;
}

void CCaptureScene::CollectPlaces()
{
	const CCapturedSort &sort = m_Call->Sort();
	CFloat3 centre;
	for (const SCapturedPrimitive &primitive : m_Call->Primitives())
		if (!IsBroken() && m_Call->QuadCentre(primitive, centre))
			m_Places.push_back(centre);
	m_HasQuads = !m_Places.empty() && m_Places.size() == m_Call->Primitives().size();
	if (m_HasQuads)
		return;
	m_Places.clear();
	m_IsChart = sort.SortType() != CTriangleSorter::SortByPosition;
	for (const SCapturedParticle &particle : m_Call->Particles())
		m_Places.push_back(particle.m_Position);
}

// Infinite values and NaNs lie beyond all others, below and above, as they are ordered.
void CCaptureScene::PlaceInChart()
{
	constexpr float kHalfWidth = 1.5f;
	constexpr float kBeyond = 1.1f;
	constexpr float kFarBeyond = 1.2f;
	const std::vector<SCapturedParticle> &particles = m_Call->Particles();
	double least = std::numeric_limits<double>::max();
	double most = std::numeric_limits<double>::lowest();
	for (const SCapturedParticle &particle : particles)
		if (std::isfinite(particle.m_Value))
		{
			least = std::min(least, double(particle.m_Value));
			most = std::max(most, double(particle.m_Value));
		}
	for (size_t i = 0; i < particles.size(); ++i)
	{
		const float value = particles[i].m_Value;
		const float sign = std::signbit(value) ? -1.0f : 1.0f;
		const float up = std::isnan(value)   ? sign * kFarBeyond
		                 : std::isinf(value) ? sign * kBeyond
		                 : most > least      ? float(2.0 * (double(value) - least) / (most - least) - 1.0)
		                                     : 0.0f;
		const double across = (double(i) + 0.5) / double(particles.size()) * 2.0 - 1.0;
		m_Places[i] = CFloat3(kHalfWidth * float(across), up, 0.0f);
	}
	constexpr float kLargest = 0.05f;
	constexpr float kSmallest = 0.004f;
	m_Radius = std::clamp(0.9f / std::sqrt(float(particles.size()) + 1.0f), kSmallest, kLargest);
	m_Camera.m_Position = CFloat3(0.0f, 0.0f, 3.7f);
}

// The call's own camera, in a space in which the particles' body is around the origin. A camera that is very far from
// it is moved towards it along its line of sight, and one whose distance floats and the far plane have no room for sees
// a smaller body at a smaller distance: the picture is the same.
void CCaptureScene::SetCamera()
{
	constexpr double kMostDistance = 1e4; // in radii of the body
	constexpr double kFarthest = 30.0;    // in the space that is drawn
	constexpr double kMargin = 1.1;
	constexpr double kWidest = 1.0; // half the picture's height at distance 1

	std::vector<CFloat3> finite;
	for (const CFloat3 &place : m_Places)
		if (IsFinite(place))
			finite.push_back(place);
	const SCloudFit fit = finite.empty() ? SCloudFit{{0.0, 0.0, 0.0}, 0.0, 0} : FitCloud(finite);
	const CFloat3 camera = m_Call->Sort().CameraPosition();
	m_HasCamera = IsFinite(camera);
	double eye[3];
	double distance = 0.0;
	for (u32 axis = 0; axis < 3; ++axis)
		eye[axis] = m_HasCamera ? double(camera[axis]) - fit.m_Centre[axis] : 0.0;
	distance = std::hypot(eye[0], eye[1], eye[2]);
	const double radius = fit.m_Radius > 0.0 ? fit.m_Radius : distance > 0.0 ? 0.01 * distance : 1.0;
	for (double &axis : eye)
		axis /= radius;
	distance /= radius;
	if (!m_HasCamera)
	{
		eye[1] = 1.0;
		eye[2] = 2.75;
		distance = std::hypot(eye[0], eye[1], eye[2]);
	}
	const double drawnDistance = std::min(distance, kFarthest);
	const double scale = drawnDistance / std::max(std::min(distance, kMostDistance), 1e-30);
	const double body = distance > kFarthest ? scale : 1.0;
	for (u32 axis = 0; axis < 3; ++axis)
		m_Camera.m_Position[axis] = distance > 0.0 ? float(eye[axis] / distance * drawnDistance) : 0.0f;
	const double beside = drawnDistance * drawnDistance - body * body;
	m_Camera.m_TanHalfFov = float(beside > 0.0 ? std::min(kMargin * body / std::sqrt(beside), kWidest) : kWidest);
	constexpr double kInTheMiddle = 1e-3;
	if (drawnDistance < kInTheMiddle)
		m_Camera.m_Target = CFloat3(m_Camera.m_Position.x(), m_Camera.m_Position.y(), m_Camera.m_Position.z() - 1.0f);
	m_Camera.m_IsPlaced = m_HasCamera;

	for (CFloat3 &place : m_Places)
		for (u32 axis = 0; axis < 3; ++axis)
			place[axis] = float((double(place[axis]) - fit.m_Centre[axis]) / radius * body);
	constexpr double kLargest = 0.08;
	constexpr double kSmallest = 0.006;
	const double spread = std::cbrt(double(m_Places.size()) + 1.0);
	m_Radius = float(body * std::clamp(0.6 / spread, kSmallest, kLargest));
}

std::vector<SPictureOfOrder> CCaptureScene::Pictures() const
{
	std::vector<SPictureOfOrder> pictures = {
		{EOrder::Storage, "unsorted.png", "unsorted, as in memory"}
    };
	if (!IsBroken())
		pictures.push_back({EOrder::Replayed, "sorted_here.png", "as sorted here"});
	if (!IsBroken() && m_Call->Sort().HasRecordedOutput())
		pictures.push_back({EOrder::Recorded, "recorded.png", "as recorded"});
	return pictures;
}

const SDrawnOutput &CCaptureScene::OutputOf(EOrder order) const
{
	return order == EOrder::Recorded ? m_Call->Recorded() : m_Call->Replayed();
}

static bool IsOutput(EOrder order)
{
	return order == EOrder::Replayed || order == EOrder::Recorded;
}

u32 CCaptureScene::Count(EOrder order) const
{
	if (IsOutput(order))
		return u32(OutputOf(order).m_Primitives.size());
	return u32(IsBroken() ? m_Call->Particles().size() : m_Call->Primitives().size());
}

SDrawnPrimitive CCaptureScene::At(EOrder order, u32 number) const
{
	return IsOutput(order) ? OutputOf(order).m_Primitives[number] : SDrawnPrimitive{number, 0, false};
}

std::optional<CFloat3> CCaptureScene::PlaceOfPrimitive(u32 primitive) const
{
	if (primitive == kNoPrimitive)
		return std::nullopt;
	const bool isPlace = m_HasQuads || IsBroken();
	const CFloat3 &place = m_Places[isPlace ? primitive : m_Call->Primitives()[primitive].m_Particle];
	return IsFinite(place) ? std::optional<CFloat3>(place) : std::nullopt;
}

std::optional<CFloat3> CCaptureScene::PlaceOf(EOrder order, u32 number) const
{
	const u32 primitive = At(order, number).m_Primitive;
	if (primitive == kNoPrimitive && order == EOrder::Recorded)
		return PlaceOfPrimitive(At(EOrder::Replayed, number).m_Primitive);
	return PlaceOfPrimitive(primitive);
}

u32 CCaptureScene::UnplacedCount(EOrder order) const
{
	const auto count = m_UnplacedCounts.find(order);
	return count == m_UnplacedCounts.end() ? 0 : count->second;
}

void CCaptureScene::SetLook(const SCaptureLook &look)
{
	const bool sameMarks = m_IsBuilt && look.m_Order == m_Look.m_Order && look.m_Shape == m_Look.m_Shape &&
	                       look.m_SizePercent == m_Look.m_SizePercent &&
	                       look.m_ColoursAreOrder == m_Look.m_ColoursAreOrder;
	const bool hasAllMarks = m_FirstDrawn == 0 && m_IndexEnds.size() == Count(m_Look.m_Order);
	const bool sameFirst = look.m_FirstCount == m_Look.m_FirstCount;
	m_Look = look;
	if (!sameMarks || !(hasAllMarks || sameFirst))
		BuildMarks();
	m_IsBuilt = true;
}

// Of the marks of one primitive, with those around it that light it up, if any is lit.
u32 CCaptureScene::MostVertices() const
{
	constexpr u32 kSquare = 4;
	const bool hasTriangles = m_Look.m_Shape == EShape::Triangles;
	const bool hasLit = m_Call->Result().m_DifferenceCount != 0 || m_Call->Replayed().m_LostCount != 0;
	return (hasLit ? kSquare : 0) + std::max(kSquare, hasTriangles ? m_Call->PrimitiveWidth() : 0);
}

// The last ones lie over all others: where not all can be drawn, they are.
void CCaptureScene::BuildMarks()
{
	const u32 count = Count(m_Look.m_Order);
	const u32 mostCount = std::max(kMostMarks / MostVertices(), 1u);
	const u32 end = count <= mostCount ? count : std::min(count, m_Look.m_FirstCount);
	m_FirstDrawn = end - std::min(end, mostCount);
	m_Marks.clear();
	m_Indices.clear();
	m_IndexEnds.clear();
	for (u32 number = m_FirstDrawn; number < end; ++number)
	{
		AddMark(number);
		m_IndexEnds.push_back(u32(m_Indices.size()));
	}
}

void CCaptureScene::AddMark(u32 number)
{
	constexpr float kHalo = 1.7f;
	const std::optional<CFloat3> place = PlaceOf(m_Look.m_Order, number);
	if (!place)
		return;
	const SDrawnPrimitive drawn = At(m_Look.m_Order, number);
	const bool isLost = drawn.m_Primitive == kNoPrimitive;
	const float share = (float(number) + 0.5f) / float(Count(m_Look.m_Order));
	SRgb colour = IsBroken() ? kUnsorted : m_Look.m_ColoursAreOrder ? RampColour(share) : kPlain;
	const float radius = m_Radius * float(m_Look.m_SizePercent) / 100.0f;
	if (isLost || drawn.m_Differs)
	{
		AddSquare(*place, kHalo * radius, Packed(isLost ? kDifferent : kWhite), true);
		colour = isLost ? kWhite : kDifferent;
	}
	const bool hasTriangles = !isLost && !IsBroken() && m_Call->PrimitiveWidth() % 3 == 0;
	if (m_Look.m_Shape == EShape::Triangles && hasTriangles)
		AddTriangles(*place, radius, Packed(colour), m_Call->Primitives()[drawn.m_Primitive]);
	else
		AddSquare(*place, m_Look.m_Shape == EShape::Points ? 0.5f * radius : radius, Packed(colour),
			m_Look.m_Shape == EShape::Points);
}

void CCaptureScene::AddSquare(const CFloat3 &place, float radius, u32 colour, bool isRound)
{
	const u32 first = u32(m_Marks.size());
	for (const auto &[right, up] : {
			 std::pair(-1.0f, -1.0f), {1.0f,  -1.0f},
               {1.0f,  1.0f },
               {-1.0f, 1.0f }
    })
		m_Marks.push_back({
			place, colour, {radius * right,         radius * up        },
              {isRound ? right : 0.0f, isRound ? up : 0.0f}
        });
	for (const u32 corner : {0u, 1u, 2u, 0u, 2u, 3u})
		m_Indices.push_back(first + corner);
}

void CCaptureScene::AddTriangles(const CFloat3 &place, float radius, u32 colour, const SCapturedPrimitive &primitive)
{
	constexpr float kWholeTurn = 6.2831853f;
	constexpr float kCornersOut = 1.4142136f; // four vertices are the corners of the square of AddSquare
	const CRing &ring = RingOf(primitive);
	const TMemoryView<const u32> pattern = m_Call->PatternOf(primitive);
	for (u32 i = 0; i < pattern.Count(); ++i)
	{
		const float turns = float(ring.at(pattern[i])) / float(ring.size()) + 0.625f;
		const float reach = kCornersOut * radius;
		m_Indices.push_back(u32(m_Marks.size()));
		m_Marks.push_back({
			place, colour, {reach * std::cos(kWholeTurn * turns), reach * std::sin(kWholeTurn * turns)},
              {0.0f,                                 0.0f                                }
        });
	}
}

// A triangle of a page's pattern lies on the ring of all the pattern's vertices; a quad has a ring of its own.
const CCaptureScene::CRing &CCaptureScene::RingOf(const SCapturedPrimitive &primitive)
{
	const TMemoryView<const u32> pattern =
		m_HasQuads ? m_Call->PatternOf(primitive)
				   : m_Call->Sort().IndexPattern(m_Call->Particles()[primitive.m_Particle].m_Page);
	const auto [ring, isNew] = m_Rings.try_emplace(pattern.Data());
	if (isNew)
		ring->second = RingOfPattern(pattern);
	return ring->second;
}

SFrame CCaptureScene::Frame()
{
	SFrame frame;
	frame.m_Camera = m_Camera;
	frame.m_Positions = CTriangleSorter::CPositionPages(m_PlacePage);
	frame.m_Enableds = CTriangleSorter::CEnabledPages(m_AllEnabled);
	frame.m_RenderedCounts = CTriangleSorter::CRenderedCounts(m_PlaceCount);
	frame.m_ParticleCount = u32(m_Call->Particles().size());
	frame.m_IndexPattern = TMemoryView<u32>(m_Triangle, 3);
	frame.m_VerticesPerParticle = 3;
	frame.m_VertexKind = EVertices::Marks;
	frame.m_Marks = TMemoryView<const SMark>(m_Marks.data(), u32(m_Marks.size()));
	frame.m_VertexCount = u32(m_Marks.size());
	return frame;
}

std::vector<u32> CCaptureScene::Indices() const
{
	const u32 end = std::min(m_Look.m_FirstCount, Count(m_Look.m_Order));
	if (end <= m_FirstDrawn)
		return {};
	return {m_Indices.begin(), m_Indices.begin() + std::ptrdiff_t(m_IndexEnds[end - m_FirstDrawn - 1])};
}
} // namespace Viewer
