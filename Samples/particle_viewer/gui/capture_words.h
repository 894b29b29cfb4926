#pragma once

// The texts that the window shows about a captured call, made without widgets.

#include "vx_defs.h"

#include "scene_capture.h"
#include <string>
#include <utility>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

const char *IndexTypeName(CTriangleSorter::EIndexType type);
const char *SortTypeName(CTriangleSorter::ESortType type);
const char *GeometryName(CTriangleSorter::EGeometryType type);

/// The numbers of the call: a name and what it is, for each line.
std::vector<std::pair<std::string, std::string>> CallLines(const CCapturedSort &sort);
/// "the first 20 of 100", or "all 100".
std::string FirstWords(u32 firstCount, u32 count);
/// Which particle a primitive of an order draws, and what orders it.
std::string PrimitiveWords(const CCaptureScene &scene, EOrder order, u32 number);

struct SOutputSentence
{
	bool m_IsGood;
	std::string m_Sentence;
};
/// How the outputs differ, and what an order draws that the call does not have, or does not draw.
std::vector<SOutputSentence> OutputWords(const CCaptureScene &scene, EOrder order);
/// Where primitives are drawn, and what the picture only makes up.
std::string PlaceWords(const CCaptureScene &scene, EOrder order);
} // namespace Viewer
