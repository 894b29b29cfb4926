#include "findings.h"

#include "text.h"

namespace Viewer
{
namespace
{
	constexpr size_t kMostFindings = 100; // that are told apart; there may be one for every page and rule

	// A sentence about a page is the same about another, whatever its numbers; any other sentence is itself.
	std::string Form(const SSortFinding &finding)
	{
		const std::string sentence = finding.m_Sentence;
		if (sentence.find("Page ") == std::string::npos && sentence.find("page ") == std::string::npos)
			return sentence;
		std::string form;
		for (const char letter : sentence)
			if (letter < '0' || letter > '9')
				form += letter;
			else if (form.empty() || form.back() != '#')
				form += '#';
		return form;
	}
} // namespace

std::string SFinding::Text() const
{
	return m_Count == 1 ? m_Sentence : m_Sentence + " (The first of " + Grouped(m_Count) + " pages like it.)";
}

void CFindings::Add(const SSortFinding &finding)
{
	const auto [place, isNew] = m_PlaceOf.try_emplace(Form(finding), m_All.size());
	if (!isNew && place->second < m_All.size())
		++m_All[place->second].m_Count;
	else if (isNew && m_All.size() < kMostFindings)
		m_All.push_back({finding.m_Kind == SortFinding_Violation, finding.m_Sentence, 1});
	else if (isNew)
		m_PlaceOf.erase(place);
}

void CFindings::Collect(const SSortFinding &finding, void *findings)
{
	static_cast<CFindings *>(findings)->Add(finding);
}

std::vector<SFinding> CFindings::Of(bool violations) const
{
	std::vector<SFinding> some;
	for (const SFinding &finding : m_All)
		if (finding.m_IsViolation == violations)
			some.push_back(finding);
	return some;
}
} // namespace Viewer
