// Points are counted in the cells of a coarse grid. Cells that touch each other form parts; floaters form small ones.

#include "cloud_fit.h"

#include <algorithm>
#include <cmath>

namespace Viewer
{
namespace
{
	constexpr u32 kSide = 48;             // cells of the grid, along each axis
	constexpr double kReach = 8.0;        // of the grid from the median, in median distances from it
	constexpr double kLeastShare = 0.02;  // of the points, for a part to belong to the body
	constexpr double kSparseShare = 0.05; // of a cell's usual count; what has less joins nothing
	constexpr double kStragglers = 0.01;  // where nothing hangs together
	constexpr size_t kSampleCount = 200000;

	double Length(const CFloat3 &a, const double centre[3])
	{
		return std::hypot(double(a.x()) - centre[0], double(a.y()) - centre[1], double(a.z()) - centre[2]);
	}

	/// A value that the given share of all values does not exceed. Reorders them.
	double Quantile(std::vector<double> &values, double share)
	{
		const auto at = values.begin() + std::ptrdiff_t(double(values.size() - 1) * share + 0.5);
		std::nth_element(values.begin(), at, values.end());
		return *at;
	}

	// Some of the positions, evenly through the file: what is true of them is true of all, near enough.
	std::vector<CFloat3> Sample(const std::vector<CFloat3> &positions)
	{
		std::vector<CFloat3> sample;
		for (size_t i = 0; i < positions.size(); i += std::max<size_t>(positions.size() / kSampleCount, 1))
			sample.push_back(positions[i]);
		return sample;
	}

	std::vector<double> Along(u32 axis, const std::vector<CFloat3> &positions)
	{
		std::vector<double> values;
		for (const CFloat3 &position : positions)
			values.push_back(double(position[axis]));
		return values;
	}

	class CGrid
	{
	public:
		explicit CGrid(const std::vector<CFloat3> &sample)
			: m_Counts(kSide * kSide * kSide)
			, m_Parts(kSide * kSide * kSide)
		{
			double reach = 0.0;
			for (u32 axis = 0; axis < 3; ++axis)
			{
				std::vector<double> values = Along(axis, sample);
				m_Middle[axis] = Quantile(values, 0.5);
				for (double &value : values)
					value = std::abs(value - m_Middle[axis]);
				reach = std::max(reach, kReach * Quantile(values, 0.5));
			}
			m_CellSize = 2.0 * reach / kSide;
			for (const CFloat3 &position : sample)
				if (const u32 cell = CellOf(position); cell != kNone)
					++m_Counts[cell];
			ClearSparseCells();
			FindParts(double(sample.size()) * kLeastShare);
		}

		bool IsInBody(const CFloat3 &position) const
		{
			const u32 cell = CellOf(position);
			return cell != kNone && m_Parts[cell] == Part_Body;
		}

	private:
		static constexpr u32 kNone = 0xFFFFFFFFu;
		enum EPart : u8
		{
			Part_None,
			Part_Body,
			Part_Small
		};

		u32 CellOf(const CFloat3 &position) const
		{
			u32 cell = 0;
			for (u32 axis = 0; axis < 3; ++axis)
			{
				const double at = (double(position[axis]) - m_Middle[axis]) / m_CellSize + 0.5 * kSide;
				if (!(at >= 0.0 && at < kSide))
					return kNone;
				cell = cell * kSide + u32(at);
			}
			return cell;
		}

		// A haze of single points would join everything to everything.
		void ClearSparseCells()
		{
			std::vector<double> counts;
			for (const u32 count : m_Counts)
				if (count != 0)
					counts.push_back(double(count));
			if (counts.empty())
				return;
			const double least = kSparseShare * Quantile(counts, 0.9);
			for (u32 &count : m_Counts)
				count = double(count) < least ? 0 : count;
		}

		void FindParts(double leastCount)
		{
			for (u32 cell = 0; cell < m_Counts.size(); ++cell)
			{
				if (m_Counts[cell] == 0 || m_Parts[cell] != Part_None)
					continue;
				const std::vector<u32> part = PartAround(cell);
				u64 count = 0;
				for (const u32 member : part)
					count += m_Counts[member];
				for (const u32 member : part)
					m_Parts[member] = double(count) >= leastCount ? Part_Body : Part_Small;
			}
		}

		std::vector<u32> PartAround(u32 first)
		{
			std::vector<u32> part = {first};
			m_Parts[first] = Part_Small;
			for (size_t i = 0; i < part.size(); ++i)
				ForEachNeighbour(part[i],
					[&](u32 neighbour)
					{
						if (m_Counts[neighbour] == 0 || m_Parts[neighbour] != Part_None)
							return;
						m_Parts[neighbour] = Part_Small;
						part.push_back(neighbour);
					});
			return part;
		}

		template<typename _Action>
		static void ForEachNeighbour(u32 cell, const _Action &action)
		{
			const u32 x = cell / (kSide * kSide), y = cell / kSide % kSide, z = cell % kSide;
			const auto low = [](u32 at) { return at == 0 ? 0 : at - 1; };
			const auto high = [](u32 at) { return std::min(at + 1, kSide - 1); };
			for (u32 i = low(x); i <= high(x); ++i)
				for (u32 j = low(y); j <= high(y); ++j)
					for (u32 k = low(z); k <= high(z); ++k)
						action((i * kSide + j) * kSide + k);
		}

		double m_Middle[3];
		double m_CellSize = 0.0;
		std::vector<u32> m_Counts;
		std::vector<u8> m_Parts;
	};

	// Between the lowest and the highest along each axis, and as far as the farthest.
	SCloudFit Around(const std::vector<CFloat3> &body)
	{
		SCloudFit fit = {};
		for (u32 axis = 0; axis < 3; ++axis)
		{
			const std::vector<double> values = Along(axis, body);
			const auto [low, high] = std::minmax_element(values.begin(), values.end());
			fit.m_Centre[axis] = 0.5 * (*low + *high);
		}
		for (const CFloat3 &position : body)
			fit.m_Radius = std::max(fit.m_Radius, Length(position, fit.m_Centre));
		return fit;
	}

	SCloudFit AroundMost(const std::vector<CFloat3> &sample)
	{
		SCloudFit fit = {};
		for (u32 axis = 0; axis < 3; ++axis)
		{
			std::vector<double> values = Along(axis, sample);
			const double low = Quantile(values, kStragglers);
			fit.m_Centre[axis] = 0.5 * (low + Quantile(values, 1.0 - kStragglers));
		}
		std::vector<double> distances;
		for (const CFloat3 &position : sample)
			distances.push_back(Length(position, fit.m_Centre));
		fit.m_Radius = Quantile(distances, 1.0 - kStragglers);
		return fit;
	}
} // namespace

SCloudFit FitCloud(const std::vector<CFloat3> &positions)
{
	constexpr double kHalf = 0.5; // of the points: a body that has fewer is none

	const std::vector<CFloat3> sample = Sample(positions);
	const CGrid grid(sample);
	std::vector<CFloat3> body;
	std::copy_if(sample.begin(), sample.end(), std::back_inserter(body),
		[&grid](const CFloat3 &position) { return grid.IsInBody(position); });
	SCloudFit fit = double(body.size()) >= kHalf * double(sample.size()) ? Around(body) : AroundMost(sample);
	const double radius = fit.m_Radius * 1.0001; // the farthest of the body is rounded
	fit.m_FarCount = u64(std::count_if(positions.begin(), positions.end(),
		[&](const CFloat3 &position) { return Length(position, fit.m_Centre) > radius; }));
	return fit;
}
} // namespace Viewer
