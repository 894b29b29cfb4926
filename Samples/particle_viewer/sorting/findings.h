#pragma once

// The findings of a validation, worded for people: a finding that repeats itself page after page is told once.

#include "ge_mesh_sort_validation.h"

#include "vx_defs.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

struct SFinding
{
	bool m_IsViolation;
	std::string m_Sentence; ///< Of the first page that it is found of.
	u32 m_Count;            ///< How often it was found, with whatever numbers.

	/// The sentence, and how many pages it stands for.
	std::string Text() const;
};

class CFindings
{
public:
	void Add(const SSortFinding &finding);
	/// A CbSortFinding: the user data is a CFindings.
	static void Collect(const SSortFinding &finding, void *findings);

	/// In the order in which each was found first.
	const std::vector<SFinding> &All() const { return m_All; }
	/// Those that break a rule, or those that do not.
	std::vector<SFinding> Of(bool violations) const;

private:
	std::vector<SFinding> m_All;
	std::unordered_map<std::string, size_t> m_PlaceOf; // by the sentence without its numbers
};
} // namespace Viewer
