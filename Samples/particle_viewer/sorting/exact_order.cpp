// Knows nothing of the sorter but its promise: keys ascend inside a draw call, and by position the pages with disabled
// particles come first.

#include "exact_order.h"

#include "deterministic.h"
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace Viewer
{
namespace
{
	// A squared distance in floats passes five roundings in a row (difference, square, with the difference twice in it,
	// two sums), each by at most half a unit in the last place of 24 bits; a little more covers their products.
	constexpr double kMaxRelativeRounding = 5.001 / 16777216.0;

	double SquaredDistance(const CFloat3 &a, const CFloat3 &b)
	{
		double sum = 0.0;
		for (u32 axis = 0; axis < 3; ++axis)
		{
			const double offset = double(a[axis]) - double(b[axis]);
			sum += offset * offset;
		}
		return sum;
	}

	float SortValue(const CFloat3 &position, const CFloat3 &eye)
	{
		float value = 0.0f;
		ComputeSortValues(TMemoryView<float>(value), TStridedMemoryView<const CFloat3>(position), eye);
		return value;
	}

	// A quad's key inside its particle has four bits less than a float.
	float QuadValue(float value)
	{
		u32 bits = 0;
		std::memcpy(&bits, &value, sizeof(bits));
		bits |= 0xF;
		std::memcpy(&value, &bits, sizeof(bits));
		return value;
	}

	// Triangles where each page has a pattern, quads where each has a centre, and patterns elsewhere.
	u32 IndicesPerPrimitive(const SFrame &frame)
	{
		return frame.m_IndexPattern.Empty() ? 3 : frame.m_QuadCentres.Empty() ? frame.m_IndexPattern.Count() : 6;
	}

	// The same for the same primitives in any order, and all but certainly another for others.
	VX_WRAPS u64 Fingerprint(const std::vector<u32> &indices, u32 indicesPerPrimitive)
	{
		u64 sum = 0;
		for (size_t first = 0; first < indices.size(); first += indicesPerPrimitive)
		{
			u64 primitive = 0;
			for (u32 i = 0; i < indicesPerPrimitive; ++i)
				primitive = Mix(primitive ^ indices[first + i]);
			sum += primitive;
		}
		return sum;
	}
} // namespace

CExactOrder::CExactOrder(const SFrame &frame)
	: m_IndicesPerPrimitive(IndicesPerPrimitive(frame))
	, m_HasQuadKeys(!frame.m_QuadCentres.Empty())
	, m_OwnerOfVertex(frame.m_VertexCount)
{
	u32 particle = 0;
	u32 nextVertex = 0;
	for (u32 page = 0; page < frame.m_Positions.Count(); ++page)
	{
		const TStridedMemoryView<const CFloat3> &positions = frame.m_Positions[page];
		const bool perPage = frame.m_IndexPattern.Empty();
		m_PageIsMixed.push_back(IsMixedPage(frame, page));
		for (u32 i = 0; i < positions.Count(); ++i)
		{
			if (!frame.m_Enableds[page].Empty() && frame.m_Enableds[page][i] == 0)
				continue;
			AddParticle(frame,
				{page, particle, frame.m_IndexList.Empty() ? nextVertex : frame.m_IndexList[particle], positions[i]});
			nextVertex += perPage ? frame.m_PageVerticesPerParticle[page] : frame.m_VerticesPerParticle;
			++particle;
		}
	}
	if (!frame.m_SortValues.Empty())
		SetSortValues(frame);
}

// The last value to be drawn is as the camera: a lower one is farther.
void CExactOrder::SetSortValues(const SFrame &frame)
{
	u32 owner = 0;
	float last = frame.m_SortValues[0][0];
	for (u32 page = 0; page < frame.m_SortValues.Count(); ++page)
		for (u32 i = 0; i < frame.m_SortValues[page].Count(); ++i)
		{
			m_Owners[owner].m_Value = m_Owners[owner].m_ParticleValue = frame.m_SortValues[page][i];
			last = std::max(last, m_Owners[owner++].m_Value);
		}
	for (SOwner &each : m_Owners)
	{
		const double distance = double(last) - double(each.m_Value);
		each.m_SquaredDistance = distance * distance;
	}
}

void CExactOrder::AddParticle(const SFrame &frame, const SParticlePlace &particle)
{
	const TMemoryView<const u32> pattern = frame.m_IndexPattern.Empty()
	                                           ? TMemoryView<const u32>(frame.m_PagePatterns[particle.m_Page])
	                                           : TMemoryView<const u32>(frame.m_IndexPattern);
	const CFloat3 &eye = frame.m_Camera.m_Position;
	const float particleValue = SortValue(particle.m_Position, eye);
	for (u32 i = 0; i < pattern.Count(); ++i)
	{
		const u32 vertex = particle.m_FirstVertex + pattern[i];
		m_Indices.push_back(vertex);
		if (i % m_IndicesPerPrimitive != 0)
			continue;
		const CFloat3 place = PlaceOfPrimitive(frame, particle, i / m_IndicesPerPrimitive);
		const float value = SortValue(place, eye);
		m_OwnerOfVertex[vertex] = u32(m_Owners.size());
		m_Owners.push_back({SquaredDistance(place, eye), m_HasQuadKeys ? QuadValue(value) : value, particleValue,
			particle.m_Number, particle.m_Page});
	}
}

CFloat3 CExactOrder::PlaceOfPrimitive(const SFrame &frame, const SParticlePlace &particle, u32 primitive) const
{
	constexpr u32 kSlotsPerParticle = 16;
	if (!frame.m_TriangleCentres.Empty())
		return frame.m_TriangleCentres[u32(m_Owners.size())];
	if (frame.m_QuadCentres.Empty())
		return particle.m_Position;
	const CFloat4 &centre =
		frame.m_QuadCentres[particle.m_FirstVertex / frame.m_VerticesPerParticle * kSlotsPerParticle + primitive];
	return CFloat3(centre.x(), centre.y(), centre.z());
}

bool CExactOrder::IsMixedPage(const SFrame &frame, u32 page) const
{
	return frame.m_RenderedCounts[page] < frame.m_Positions[page].Count();
}

const CExactOrder::SOwner &CExactOrder::OwnerOf(const std::vector<u32> &indices, u32 primitive) const
{
	return m_Owners[m_OwnerOfVertex[indices[primitive * m_IndicesPerPrimitive]]];
}

std::vector<u32> CExactOrder::SortedIndices() const
{
	std::vector<u32> primitives(m_Indices.size() / m_IndicesPerPrimitive);
	std::iota(primitives.begin(), primitives.end(), 0u);
	std::stable_sort(primitives.begin(), primitives.end(),
		[this](u32 a, u32 b)
		{ return OwnerOf(m_Indices, a).m_SquaredDistance > OwnerOf(m_Indices, b).m_SquaredDistance; });

	std::vector<u32> sorted;
	sorted.reserve(m_Indices.size());
	for (const u32 primitive : primitives)
		for (u32 i = 0; i < m_IndicesPerPrimitive; ++i)
			sorted.push_back(m_Indices[primitive * m_IndicesPerPrimitive + i]);
	return sorted;
}

std::vector<float> CExactOrder::DistancesOf(const std::vector<u32> &drawnIndices) const
{
	std::vector<float> distances(drawnIndices.size() / m_IndicesPerPrimitive);
	for (u32 primitive = 0; primitive < distances.size(); ++primitive)
		distances[primitive] = std::sqrt(0.0f - OwnerOf(drawnIndices, primitive).m_Value);
	return distances;
}

bool CExactOrder::IsComplete(const std::vector<u32> &drawnIndices) const
{
	return drawnIndices.size() == m_Indices.size() &&
	       std::all_of(
			   drawnIndices.begin(), drawnIndices.end(), [this](u32 i) { return i < m_OwnerOfVertex.size(); }) &&
	       Fingerprint(drawnIndices, m_IndicesPerPrimitive) == Fingerprint(m_Indices, m_IndicesPerPrimitive);
}

SOrderFigures CExactOrder::Measure(
	EOrder order, const std::vector<SDrawCall> &drawCalls, const std::vector<u32> &drawnIndices) const
{
	SOrderFigures figures;
	figures.m_Complete = IsComplete(drawnIndices);
	if (!figures.m_Complete || m_Owners.empty())
		return figures;

	const auto closer = [](const SOwner &a, const SOwner &b) { return a.m_SquaredDistance < b.m_SquaredDistance; };
	const auto [nearest, farthest] = std::minmax_element(m_Owners.begin(), m_Owners.end(), closer);
	const double range = std::sqrt(farthest->m_SquaredDistance) - std::sqrt(nearest->m_SquaredDistance);

	double nearestDrawn = farthest->m_SquaredDistance;
	double worst = 0.0;
	const SOwner *previous = null;
	u32 primitive = 0;
	for (const SDrawCall &drawCall : drawCalls)
	{
		const u32 end = primitive + drawCall.m_IndexCount / m_IndicesPerPrimitive;
		for (bool sameDrawCall = false; primitive < end; ++primitive, sameDrawCall = true)
		{
			const SOwner &owner = OwnerOf(drawnIndices, primitive);
			worst = std::max(worst, std::sqrt(owner.m_SquaredDistance) - std::sqrt(nearestDrawn));
			nearestDrawn = std::min(nearestDrawn, owner.m_SquaredDistance);
			if (previous != null)
				Judge(figures, order, sameDrawCall, *previous, owner);
			previous = &owner;
		}
	}
	figures.m_WorstBacktrack = range > 0.0 ? worst / range : 0.0;
	return figures;
}

void CExactOrder::Judge(
	SOrderFigures &figures, EOrder order, bool sameDrawCall, const SOwner &first, const SOwner &second) const
{
	const bool outOfOrder = second.m_SquaredDistance > first.m_SquaredDistance;
	figures.m_OutOfOrder += outOfOrder ? 1 : 0;
	if (order == EOrder::Storage)
		return;

	const bool byPageKind = order == EOrder::ByPosition && m_PageIsMixed[first.m_Page] != m_PageIsMixed[second.m_Page];
	const bool byQuad = order == EOrder::ByValue && m_HasQuadKeys && first.m_Particle == second.m_Particle;
	const bool byParticle = order != EOrder::ByTriangle && !byQuad;
	const float firstValue = byParticle ? first.m_ParticleValue : first.m_Value;
	const float secondValue = byParticle ? second.m_ParticleValue : second.m_Value;
	const double distance = second.m_SquaredDistance - first.m_SquaredDistance;
	const double sum = second.m_SquaredDistance + first.m_SquaredDistance;

	if (!sameDrawCall)
		figures.m_DrawCalls += outOfOrder ? 1 : 0;
	else if (byPageKind && m_PageIsMixed[first.m_Page])
		figures.m_PageKinds += outOfOrder ? 1 : 0;
	else if (byPageKind || firstValue > secondValue) // not what the sorter promises, in order or out of it
		++figures.m_Unexplained;
	else if (!outOfOrder)
		return;
	else if (byParticle && (firstValue != first.m_Value || secondValue != second.m_Value))
		++figures.m_ParticleKeys;
	else if (firstValue == secondValue)
		++figures.m_EqualKeys;
	else if (distance <= kMaxRelativeRounding * sum)
		++figures.m_Rounding;
	else
		++figures.m_Unexplained;
}
} // namespace Viewer
