#pragma once

// A captured draw call, prepared to be shown: its particles, and which of them each primitive of an output draws. The
// file may have any bytes. So a call that breaks rules is not sorted, and only elements that the file has are read,
// whatever its numbers say.

#include "ge_mesh_sort_replay.h"

#include "vx_defs.h"

#include "findings.h"
#include <string>
#include <string_view>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// A rendered particle of the call.
struct SCapturedParticle
{
	CFloat3 m_Position;   ///< Of a call that is sorted by position; otherwise 0.
	float m_Value = 0.0f; ///< What orders it, the lowest first: its value, or 0 - its squared distance.
	u32 m_Page = 0;
	u32 m_Number = 0; ///< Its place in its page, disabled particles counted.
};

/// What is drawn as one: the whole pattern of a particle; or a triangle of it where pages have patterns of their own,
/// or a quad of it where quads are sorted inside each particle.
struct SCapturedPrimitive
{
	u32 m_Particle = 0; ///< The number of the rendered particle.
	u32 m_Part = 0;     ///< Of the pattern: which triangle or quad.
};

constexpr u32 kNoPrimitive = 0xFFFFFFFFu;

/// A primitive of an output.
struct SDrawnPrimitive
{
	u32 m_Primitive = kNoPrimitive; ///< Among those of the call; kNoPrimitive: its indices are none of theirs.
	u32 m_FirstIndex = 0;           ///< Its place in the output.
	bool m_Differs = false;         ///< An index of it is not the same in both outputs.
};

/// The primitives of an output, in drawing order.
struct SDrawnOutput
{
	std::vector<SDrawnPrimitive> m_Primitives;
	u32 m_LostCount = 0;    ///< Primitives whose indices no primitive of the call has.
	u32 m_AgainCount = 0;   ///< Primitives drawn more often than the call has them.
	u32 m_MissingCount = 0; ///< Primitives of the call that are not drawn.
	u32 m_DifferentCount = 0;
};

class CCapturedCall
{
public:
	/// The most primitives of a call that is looked at.
	static constexpr u32 kMostPrimitives = 4000000;
	static constexpr u64 kMemoryLimit = u64(4) << 30;

	/// Whether a file starts as captures do.
	static bool IsCapture(std::string_view file);

	/// Reads a capture. A file that is damaged, or has too many primitives, is a CFailure.
	explicit CCapturedCall(std::string_view file);

	/// Checks the call, and if it keeps the rules, sorts it and finds out what it draws. Once, before what follows.
	/// Reports  what the sort reports
	void Replay();

	bool IsReplayed() const { return m_IsReplayed; }

	CCapturedSort &Sort() { return m_Sort; }
	const CCapturedSort &Sort() const { return m_Sort; }
	const CFindings &Findings() const { return m_Findings; }
	const SSortReplay &Result() const { return m_Result; }

	/// The rendered particles, as they lie in their pages.
	const std::vector<SCapturedParticle> &Particles() const { return m_Particles; }
	/// The primitives of the call, as their particles lie in their pages.
	const std::vector<SCapturedPrimitive> &Primitives() const { return m_Primitives; }
	/// What this machine draws; nothing if the call breaks a rule.
	const SDrawnOutput &Replayed() const { return m_Replayed; }
	/// What the host drew; nothing if the call breaks a rule or has no recorded output.
	const SDrawnOutput &Recorded() const { return m_Recorded; }

	/// Indices of a primitive.
	u32 PrimitiveWidth() const { return m_Width; }
	/// Primitives that a particle of a page has.
	u32 PatternCount(u32 page) const { return m_Width == 0 ? 0 : m_Sort.IndexPattern(page).Count() / m_Width; }
	/// A primitive's part of its particle's pattern.
	TMemoryView<const u32> PatternOf(const SCapturedPrimitive &primitive) const;
	/// The middle of a quad, from the call's quad centres; false if it has none for this primitive.
	bool QuadCentre(const SCapturedPrimitive &primitive, CFloat3 &centre) const;

private:
	class CPrimitiveTable;

	void CollectParticles();
	void CollectPage(u32 page);
	void AddParticle(u32 page, u32 number);
	void CollectFirstVertices();
	void CollectPrimitives();
	void IndicesOf(u32 primitive, std::vector<u32> &indices) const;
	bool ReadPrimitive(u32 firstIndex, std::vector<u32> &replayed, std::vector<u32> &recorded) const;
	SDrawnOutput Drawn(const CPrimitiveTable &table, bool isRecorded) const;

	CCapturedSort m_Sort;
	CFindings m_Findings;
	SSortReplay m_Result;
	std::vector<SCapturedParticle> m_Particles;
	std::vector<u32> m_FirstVertices; // of each particle
	std::vector<SCapturedPrimitive> m_Primitives;
	u32 m_Width = 0;
	u64 m_LookedAtCount = 0;
	bool m_IsReplayed = false;
	SDrawnOutput m_Replayed;
	SDrawnOutput m_Recorded;
};
} // namespace Viewer
