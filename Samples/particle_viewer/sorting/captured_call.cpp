// From the constructor down: particles out of their pages, their primitives, and then each primitive of an output by
// the indices that it has.

#include "captured_call.h"

#include "ge_mesh_sort_capture.h"

#include "deterministic.h"
#include "failure.h"
#include "sort_frame.h"
#include "text.h"
#include <algorithm>
#include <cstring>
#include <numeric>
#include <type_traits>

namespace Viewer
{
namespace
{
	constexpr u32 kTriangleWidth = 3;
	constexpr u32 kQuadWidth = 6;
	constexpr u32 kCentresPerParticle = 16;
	constexpr u64 kMostLookedAt = u64(1) << 28; // enabled bytes; a page of a small file may claim billions

	/// An element at any address.
	template<typename _View>
	auto At(const _View &view, u32 i)
	{
		std::remove_const_t<std::remove_reference_t<decltype(view[0])>> element;
		std::memcpy(static_cast<void *>(&element), view.AddressOf(i), sizeof(element));
		return element;
	}

	u64 Fingerprint(const std::vector<u32> &indices)
	{
		u64 bits = 0;
		for (const u32 index : indices)
			bits = Mix(bits ^ index);
		return bits;
	}

	[[noreturn]] void RefuseTooMany()
	{
		throw CFailure("The capture has more than " + Grouped(CCapturedCall::kMostPrimitives) +
					   " primitives, which are too many to look at; --replay tells of them in words.");
	}
} // namespace

/// Finds a primitive of the call by its indices.
class CCapturedCall::CPrimitiveTable
{
public:
	explicit CPrimitiveTable(const CCapturedCall &call)
		: m_Call(call)
	{
		std::vector<u32> indices;
		for (u32 primitive = 0; primitive < call.m_Primitives.size(); ++primitive)
		{
			call.IndicesOf(primitive, indices);
			m_Entries.push_back({Fingerprint(indices), primitive});
		}
		std::sort(m_Entries.begin(), m_Entries.end(),
			[](const SEntry &a, const SEntry &b) {
				return a.m_Fingerprint != b.m_Fingerprint ? a.m_Fingerprint < b.m_Fingerprint
			                                              : a.m_Primitive < b.m_Primitive;
			});
	}

	/// Of primitives with the same indices, each is found in turn, and then the last one again. foundCounts has an
	/// entry for each primitive, at first 0; isAgain says whether all of them were found before.
	u32 Find(const std::vector<u32> &indices, std::vector<u32> &foundCounts, bool &isAgain) const
	{
		const u64 fingerprint = Fingerprint(indices);
		const auto first = std::lower_bound(m_Entries.begin(), m_Entries.end(), fingerprint,
			[](const SEntry &entry, u64 sought) { return entry.m_Fingerprint < sought; });
		isAgain = false;
		if (first == m_Entries.end() || first->m_Fingerprint != fingerprint)
			return kNoPrimitive;
		auto entry = first + std::ptrdiff_t(foundCounts[first->m_Primitive]); // the first one counts for all
		if (entry == m_Entries.end() || entry->m_Fingerprint != fingerprint)
		{
			isAgain = true;
			--entry;
		}
		else
			++foundCounts[first->m_Primitive];
		std::vector<u32> &own = m_Scratch;
		m_Call.IndicesOf(entry->m_Primitive, own);
		return own == indices ? entry->m_Primitive : kNoPrimitive;
	}

private:
	struct SEntry
	{
		u64 m_Fingerprint;
		u32 m_Primitive;
	};

	const CCapturedCall &m_Call;
	std::vector<SEntry> m_Entries;
	mutable std::vector<u32> m_Scratch;
};

bool CCapturedCall::IsCapture(std::string_view file)
{
	return file.substr(0, sizeof(kSortCaptureMagic) - 1) == kSortCaptureMagic;
}

CCapturedCall::CCapturedCall(std::string_view file)
{
	if (!m_Sort.Read(file.data(), file.size(), kMemoryLimit))
		throw CFailure(m_Sort.Refusal());
	CollectParticles();
	CollectFirstVertices();
	CollectPrimitives();
}

// Before the sort, which overwrites what a broken call may share with its input.
void CCapturedCall::CollectParticles()
{
	for (u32 page = 0; page < m_Sort.PageCount(); ++page)
		CollectPage(page);
}

// As many as the page renders, of as many as are there.
void CCapturedCall::CollectPage(u32 page)
{
	const bool byPosition = m_Sort.SortType() == CTriangleSorter::SortByPosition;
	const u32 sourceCount = byPosition ? m_Sort.Positions(page).Count() : m_Sort.SortValues(page).Count();
	const u32 renderedCount = m_Sort.RenderedCount(page);
	const TStridedMemoryView<const u8> enableds = m_Sort.Enableds(page);
	const bool hasDisabled = !enableds.Empty() && renderedCount < sourceCount;
	const u32 end = std::min(sourceCount, hasDisabled ? enableds.Count() : renderedCount);
	u32 takenCount = 0;
	for (u32 number = 0; number < end && takenCount < renderedCount; ++number)
	{
		if (++m_LookedAtCount > kMostLookedAt)
			RefuseTooMany();
		if (hasDisabled && enableds[number] == 0)
			continue;
		AddParticle(page, number);
		++takenCount;
	}
}

void CCapturedCall::AddParticle(u32 page, u32 number)
{
	if (m_Particles.size() == kMostPrimitives)
		RefuseTooMany();
	SCapturedParticle particle;
	particle.m_Page = page;
	particle.m_Number = number;
	if (m_Sort.SortType() == CTriangleSorter::SortByPosition)
	{
		particle.m_Position = At(m_Sort.Positions(page), number);
		ComputeSortValues(TMemoryView<float>(particle.m_Value), TStridedMemoryView<const CFloat3>(particle.m_Position),
			m_Sort.CameraPosition());
	}
	else
		particle.m_Value = At(m_Sort.SortValues(page), number);
	m_Particles.push_back(particle);
}

// One after the other, or as the index list says. Particles of geometry that all share are drawn with vertex 0 if the
// vertex count has no room for them.
void CCapturedCall::CollectFirstVertices()
{
	const TMemoryView<const u32> list = m_Sort.IndexList();
	const bool perPage = m_Sort.GeometryType() == CTriangleSorter::GeometryPerPage;
	const bool hasList = m_Sort.GeometryType() == CTriangleSorter::GeometryConstantAndIndexList ||
	                     m_Sort.GeometryType() == CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters;
	const u64 vertexCount = m_Sort.VertexCount();
	u64 next = 0;
	for (u32 particle = 0; particle < m_Particles.size(); ++particle)
	{
		const u32 listed = hasList && particle < list.Count() ? At(list, particle) : 0;
		const u64 first = hasList ? listed : next;
		next += m_Sort.VerticesPerParticle(m_Particles[particle].m_Page);
		const bool isInside = perPage || (hasList ? first < vertexCount : next <= vertexCount);
		m_FirstVertices.push_back(isInside ? u32(first) : 0);
	}
}

void CCapturedCall::CollectPrimitives()
{
	const CTriangleSorter::EGeometryType geometry = m_Sort.GeometryType();
	const bool perPage = geometry == CTriangleSorter::GeometryPerPage;
	const bool hasQuads = geometry == CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters;
	m_Width = perPage ? kTriangleWidth : hasQuads ? kQuadWidth : m_Sort.IndexPattern(0).Count();
	for (u32 particle = 0; particle < m_Particles.size() && m_Width != 0; ++particle)
	{
		const u32 partCount = PatternCount(m_Particles[particle].m_Page);
		if (partCount > kMostPrimitives - m_Primitives.size())
			RefuseTooMany();
		for (u32 part = 0; part < partCount; ++part)
			m_Primitives.push_back({particle, part});
	}
}

TMemoryView<const u32> CCapturedCall::PatternOf(const SCapturedPrimitive &primitive) const
{
	return m_Sort.IndexPattern(m_Particles[primitive.m_Particle].m_Page).Slice(primitive.m_Part * m_Width, m_Width);
}

void CCapturedCall::IndicesOf(u32 primitive, std::vector<u32> &indices) const
{
	const u32 firstVertex = m_FirstVertices[m_Primitives[primitive].m_Particle];
	indices.clear();
	for (const u32 *entry = PatternOf(m_Primitives[primitive]).Data(); indices.size() < m_Width; ++entry)
		indices.push_back(u32(u64(firstVertex) + *entry));
}

bool CCapturedCall::QuadCentre(const SCapturedPrimitive &primitive, CFloat3 &centre) const
{
	const TMemoryView<const CFloat4> centres = m_Sort.QuadCenters();
	const u32 vertexCount = m_Sort.VerticesPerParticle(0);
	if (vertexCount == 0 || centres.Empty())
		return false;
	const u64 slot = u64(m_FirstVertices[primitive.m_Particle] / vertexCount) * kCentresPerParticle + primitive.m_Part;
	if (slot >= centres.Count())
		return false;
	const CFloat4 found = At(centres, u32(slot));
	centre = CFloat3(found.x(), found.y(), found.z());
	return true;
}

void CCapturedCall::Replay()
{
	m_IsReplayed = true;
	m_Result = ReplaySort(m_Sort, CFindings::Collect, &m_Findings);
	if (!m_Result.m_Sorted || m_Width == 0)
		return;
	const CPrimitiveTable table(*this);
	m_Replayed = Drawn(table, false);
	if (m_Sort.HasRecordedOutput())
		m_Recorded = Drawn(table, true);
}

// Reads a primitive's indices out of both outputs; false where the sort writes nothing, which ends what is drawn.
bool CCapturedCall::ReadPrimitive(u32 firstIndex, std::vector<u32> &replayed, std::vector<u32> &recorded) const
{
	for (u32 i = 0; i < m_Width; ++i)
	{
		if (!m_Sort.ReplayedIndex(firstIndex + i, replayed[i]))
			return false;
		recorded[i] = m_Sort.HasRecordedOutput() ? m_Sort.RecordedIndex(firstIndex + i) : replayed[i];
	}
	return true;
}

SDrawnOutput CCapturedCall::Drawn(const CPrimitiveTable &table, bool isRecorded) const
{
	const bool hasQuads = m_Sort.GeometryType() == CTriangleSorter::GeometryConstantAndIndexListAndQuadCenters;
	const u32 patternWidth = hasQuads ? m_Sort.IndexPattern(0).Count() : m_Width;
	const u32 primitivesPerPattern = patternWidth / m_Width; // behind the last quad a pattern may have more indices
	const u64 mostCount = u64(m_Sort.OutputCount() / patternWidth) * primitivesPerPattern;
	SDrawnOutput drawn;
	std::vector<u32> foundCounts(m_Primitives.size());
	std::vector<u32> replayed(m_Width);
	std::vector<u32> recorded(m_Width);
	for (u64 number = 0; number < mostCount; ++number)
	{
		SDrawnPrimitive primitive;
		primitive.m_FirstIndex =
			u32(number / primitivesPerPattern * patternWidth + number % primitivesPerPattern * m_Width);
		if (!ReadPrimitive(primitive.m_FirstIndex, replayed, recorded))
			break;
		const std::vector<u32> &indices = isRecorded ? recorded : replayed;
		const bool isInside =
			std::all_of(indices.begin(), indices.end(), [this](u32 index) { return index < m_Sort.VertexCount(); });
		bool isAgain = false;
		if (isInside)
			primitive.m_Primitive = table.Find(indices, foundCounts, isAgain);
		primitive.m_Differs = replayed != recorded;
		const bool isLost = primitive.m_Primitive == kNoPrimitive;
		drawn.m_LostCount += isLost ? 1 : 0;
		drawn.m_AgainCount += !isLost && isAgain ? 1 : 0;
		drawn.m_DifferentCount += primitive.m_Differs ? 1 : 0;
		drawn.m_Primitives.push_back(primitive);
	}
	const u64 foundCount = std::accumulate(foundCounts.begin(), foundCounts.end(), u64(0));
	drawn.m_MissingCount = u32(m_Primitives.size() - foundCount);
	return drawn;
}
} // namespace Viewer
