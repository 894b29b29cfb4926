#include "order_pairs.h"

#include <algorithm>

namespace Viewer
{
namespace
{
	// A merge sort, the farthest first: where one of the right half goes before what is left of the left half, each of
	// these was drawn too early.
	u64 SortAndCount(std::vector<float> &from)
	{
		std::vector<float> to(from.size());
		u64 inversions = 0;
		for (size_t width = 1; width < from.size(); width *= 2)
		{
			for (size_t start = 0; start < from.size(); start += 2 * width)
			{
				const size_t middle = std::min(start + width, from.size());
				const size_t end = std::min(start + 2 * width, from.size());
				size_t left = start;
				size_t right = middle;
				for (size_t at = start; at < end; ++at)
				{
					const bool takesLeft = right == end || (left < middle && from[left] >= from[right]);
					inversions += takesLeft ? 0 : middle - left;
					to[at] = takesLeft ? from[left++] : from[right++];
				}
			}
			from.swap(to);
		}
		return inversions;
	}
} // namespace

SPairFigures MeasurePairs(std::vector<float> distances)
{
	SPairFigures figures;
	if (distances.empty())
		return figures;
	double worst = 0.0;
	float nearest = distances[0];
	for (const float distance : distances)
	{
		worst = std::max(worst, double(distance) - double(nearest));
		nearest = std::min(nearest, distance);
	}
	const u64 count = distances.size();
	figures.m_PairCount = count * (count - 1) / 2;
	figures.m_OutOfOrder = SortAndCount(distances);
	const size_t tail = size_t(0.01 * double(count - 1));
	const double range = double(distances[tail]) - double(distances[count - 1 - tail]);
	figures.m_WorstBacktrack = range > 0.0 ? worst / range : 0.0;
	return figures;
}
} // namespace Viewer
