#include "capture_words.h"

#include "text.h"
#include <cstdio>

namespace Viewer
{
namespace
{
	std::string Shown(float number)
	{
		char text[32];
		std::snprintf(text, sizeof(text), "%.7g", double(number));
		return text;
	}

	std::string Primitives(u32 count)
	{
		return Grouped(count) + (count == 1 ? " primitive" : " primitives");
	}

	const char *Are(u32 count)
	{
		return count == 1 ? " is" : " are";
	}
} // namespace

const char *IndexTypeName(CTriangleSorter::EIndexType type)
{
	const char *const names[] = {"no output", "indices of 16 bits", "indices of 32 bits"};
	return names[type];
}

const char *SortTypeName(CTriangleSorter::ESortType type)
{
	const char *const names[] = {"no input", "by position", "by value"};
	return names[type];
}

const char *GeometryName(CTriangleSorter::EGeometryType type)
{
	const char *const names[] = {"no geometry", "one pattern", "one pattern and an index list",
		"one pattern, an index list and sorted quads", "a pattern per page"};
	return names[type];
}

std::vector<std::pair<std::string, std::string>> CallLines(const CCapturedSort &sort)
{
	return {
		{"Sort",      SortTypeName(sort.SortType())                                                     },
		{"Geometry",  GeometryName(sort.GeometryType())                                                 },
		{"Particles", Grouped(sort.ParticleCount())                                                     },
		{"Pages",     Grouped(sort.PageCount()) + ", " + Grouped(sort.PageCountWithEnableds()) + " with enabled bytes, " +
					  Grouped(sort.EmptyPageCount()) + " empty"                        },
		{"Output",    "room for " + Grouped(sort.OutputCount()) + ", " + IndexTypeName(sort.IndexType())},
		{"Vertices",  Grouped(sort.VertexCount())                                                       },
	};
}

std::string FirstWords(u32 firstCount, u32 count)
{
	return firstCount < count ? "the first " + Grouped(firstCount) + " of " + Grouped(count) : "all " + Grouped(count);
}

std::string PrimitiveWords(const CCaptureScene &scene, EOrder order, u32 number)
{
	if (number >= scene.Count(order))
		return "";
	const CCapturedCall &call = scene.Call();
	const SDrawnPrimitive drawn = scene.At(order, number);
	std::string words = "Number " + Grouped(number) + ": ";
	if (drawn.m_Primitive == kNoPrimitive)
		return words + "indices of no primitive of the call, from place " + Grouped(drawn.m_FirstIndex) + " on";
	const SCapturedPrimitive primitive =
		scene.IsBroken() ? SCapturedPrimitive{drawn.m_Primitive, 0} : call.Primitives()[drawn.m_Primitive];
	const SCapturedParticle &particle = call.Particles()[primitive.m_Particle];
	const bool hasParts = !scene.IsBroken() && call.PatternCount(particle.m_Page) > 1;
	if (hasParts)
		words += std::string(call.PrimitiveWidth() == 3 ? "triangle " : "quad ") + Grouped(primitive.m_Part) + " of ";
	words += "particle " + Grouped(particle.m_Number) + " of page " + Grouped(particle.m_Page) + ", ";
	if (call.Sort().SortType() == CTriangleSorter::SortByPosition)
		return words + "squared distance " + Shown(0.0f - particle.m_Value);
	return words + "value " + Shown(particle.m_Value);
}

std::vector<SOutputSentence> OutputWords(const CCaptureScene &scene, EOrder order)
{
	const SSortReplay &result = scene.Call().Result();
	if (!result.m_Sorted)
		return {
			{false, "The call breaks a rule, so it is not sorted: its particles are grey, as they lie in memory."}
        };
	std::vector<SOutputSentence> sentences;
	const SDrawnOutput &output = scene.OutputOf(order);
	if (!result.m_Compared)
		sentences.push_back({true, "The capture has no recorded output to compare with."});
	else if (result.m_DifferenceCount == 0)
		sentences.push_back({true, "Every index is as recorded."});
	else
		sentences.push_back({false,
			Grouped(result.m_DifferenceCount) + (result.m_DifferenceCount == 1 ? " index differs" : " indices differ") +
				", in " + Primitives(output.m_DifferentCount) + ", lit. The first is at place " +
				Grouped(result.m_FirstDifference) + ": " + Grouped(result.m_ReplayedIndex) + " here, " +
				Grouped(result.m_RecordedIndex) + " recorded."});
	if (output.m_LostCount != 0)
		sentences.push_back({false, Primitives(output.m_LostCount) + (output.m_LostCount == 1 ? " has" : " have") +
										" indices that none of the call has, lit white, where this machine draws "
										"another."});
	if (output.m_AgainCount != 0)
		sentences.push_back({false, Grouped(output.m_AgainCount) + " of the primitives" +
										(output.m_AgainCount == 1 ? " has" : " have") + " been drawn before."});
	if (output.m_MissingCount != 0)
		sentences.push_back(
			{false, Primitives(output.m_MissingCount) + " of the call" + Are(output.m_MissingCount) + " not drawn."});
	return sentences;
}

std::string PlaceWords(const CCaptureScene &scene, EOrder order)
{
	std::string words = scene.IsChart() ? "A sort by values has no positions: particles lie from left to right as in "
	                                      "memory, and upwards by their values."
	                    : scene.HasCamera() ? "Positions and camera are the call's; shapes and sizes are made up."
	                                        : "Positions are the call's; its camera is not finite, so this one, and "
	                                          "shapes and sizes, are made up.";
	const u32 unplacedCount = scene.UnplacedCount(order);
	if (unplacedCount != 0)
		words += " Without a finite position, and not shown: " + Primitives(unplacedCount) + ".";
	if (scene.FirstDrawn() != 0)
		words += " Too many to show: numbers below " + Grouped(scene.FirstDrawn()) + " are left out.";
	return words;
}
} // namespace Viewer
