#include "file_scene.h"

#include "captured_call.h"
#include "cloud_file.h"
#include "deterministic.h"
#include "failure.h"
#include "mapped_file.h"
#include "scene_capture.h"
#include "text.h"
#include <algorithm>
#include <chrono>
#include <cstdio>

namespace Viewer
{
namespace
{
	constexpr u32 kPointsPerPage = 16384; // 16-bit indices reach every point of a page

	class CFileScene final : public IScene
	{
	public:
		CFileScene(const std::shared_ptr<const SPointCloud> &cloud, u32 pointCount)
			: m_Cloud(cloud)
			, m_PointCount(pointCount)
		{
			for (u32 first = 0; first < pointCount; first += kPointsPerPage)
				AddPage(first, std::min(kPointsPerPage, pointCount - first));
			m_FirstTurn = TurnOfWorstFileOrder();
		}

		u32 WarmUpStepCount() const override { return 0; }

		void Advance() override { ++m_Step; }

		SFrame Frame() override
		{
			const u32 pageCount = u32(m_Counts.size());
			SFrame frame;
			frame.m_Camera = Camera();
			frame.m_Positions = CPages<CFloat3>(m_Positions.data(), pageCount);
			frame.m_Enableds = CPages<u8>(m_Enableds.data(), pageCount);
			frame.m_SortValues = CPages<float>(m_SortValues.data(), u32(m_SortValues.size()));
			frame.m_RenderedCounts = TMemoryView<const u32>(m_Counts.data(), pageCount);
			frame.m_ParticleCount = m_PointCount;
			frame.m_IndexPattern = TMemoryView<u32>(m_Pattern, 1);
			frame.m_VerticesPerParticle = 1;
			frame.m_VertexKind = EVertices::Cloud;
			frame.m_Cloud = m_Cloud.get();
			frame.m_VertexCount = m_PointCount;
			return frame;
		}

		// No page has disabled points: positions are right.
		std::vector<SPictureOfOrder> Pictures() const override
		{
			const SPictureOfOrder byPosition = {EOrder::ByPosition, "sorted.png", "sorted by distance"};
			const SPictureOfOrder byProperty = {EOrder::ByProperty, "sorted.png", "sorted by a property"};
			return {
				{EOrder::Storage, "unsorted.png", "as in the file"},
				m_Cloud->m_SortValues.empty() ? byPosition : byProperty
            };
		}

	private:
		template<typename _Element>
		using CPages = TMemoryView<const TStridedMemoryView<const _Element>>;

		void AddPage(u32 first, u32 count)
		{
			m_Counts.push_back(count);
			m_Positions.push_back(TMemoryView<const CFloat3>(m_Cloud->m_Positions.data() + first, count));
			m_Enableds.emplace_back(); // none is disabled
			if (!m_Cloud->m_SortValues.empty())
				m_SortValues.push_back(TMemoryView<const float>(m_Cloud->m_SortValues.data() + first, count));
		}

		// Files often lie in an order that looks right from one side. The camera begins where the file's order is the
		// most wrong: where later points are farther, as the sum of place times distance along the view says.
		float TurnOfWorstFileOrder() const
		{
			constexpr u32 kTurnCount = 16;
			constexpr u32 kSampleCount = 20000;
			const u32 stride = std::max(m_PointCount / kSampleCount, 1u);
			double worst = 0.0;
			float worstTurn = 0.0f;
			for (u32 turn = 0; turn < kTurnCount; ++turn)
			{
				const float turns = float(turn) / float(kTurnCount);
				const float sine = SineOfTurns(turns);
				const float cosine = CosineOfTurns(turns);
				double sum = 0.0;
				for (u32 i = 0; i < m_PointCount; i += stride)
				{
					const CFloat3 &position = m_Cloud->m_Positions[i];
					const double away = -double(position.x() * sine + position.z() * cosine);
					const double place = double(i) / double(m_PointCount) - 0.5;
					sum += std::clamp(away, -1.0, 1.0) * place;
				}
				if (sum > worst)
				{
					worst = sum;
					worstTurn = turns;
				}
			}
			return worstTurn;
		}

		SCamera Camera() const
		{
			constexpr float kDistance = 2.75f; // with the height, what shows a sphere of radius 1 just whole
			const float turns = m_FirstTurn + float(m_Step) / 240.0f;
			SCamera camera;
			camera.m_Position =
				CFloat3(kDistance * SineOfTurns(turns), 0.38f * kDistance, kDistance * CosineOfTurns(turns));
			return camera;
		}

		std::shared_ptr<const SPointCloud> m_Cloud;
		u32 m_PointCount;
		u32 m_Step = 0;
		float m_FirstTurn = 0.0f;

		u32 m_Pattern[1] = {0};
		std::vector<u32> m_Counts;
		std::vector<TStridedMemoryView<const CFloat3>> m_Positions;
		std::vector<TStridedMemoryView<const u8>> m_Enableds;
		std::vector<TStridedMemoryView<const float>> m_SortValues;
	};

	std::shared_ptr<const SPointCloud> Read(
		const std::string &path, std::string_view bytes, const SCloudOptions &options)
	{
		const std::string start = "The file " + Quoted(path) + ", ";
		try
		{
			SPointCloud cloud = ReadCloud(bytes, options);
			if (options.m_OutlierDistance != 0)
				AddOutlier(cloud, options.m_OutlierDistance);
			return std::make_shared<const SPointCloud>(std::move(cloud));
		}
		catch (const CBadPoint &failure)
		{
			std::string sentence = failure.what();
			sentence.pop_back();
			throw CFailure(start + sentence + "; --skip-bad leaves such points out.");
		}
		catch (const CFailure &failure)
		{
			throw CFailure(start + failure.what());
		}
	}

	std::string FarPoints(const SPointCloud &cloud)
	{
		return cloud.m_FarCount == 0 ? "" : ", " + Grouped(cloud.m_FarCount) + " of its points far from the rest";
	}

	std::string LeftOut(const SPointCloud &cloud)
	{
		if (cloud.m_LeftOutCount == 0)
			return "";
		return "; left out: " + Grouped(cloud.m_LeftOutCount) + " of " +
		       Grouped(cloud.m_LeftOutCount + cloud.m_Positions.size()) + ", the first at " + cloud.m_FirstLeftOut;
	}

	std::string Added(const SCloudOptions &options)
	{
		return options.m_OutlierDistance == 0 ? ""
		                                      : "; a point added " + Grouped(options.m_OutlierDistance) + " radii away";
	}
} // namespace

static SSceneKind CaptureScene(const std::string &path, std::string_view bytes)
{
	SSceneKind kind = {};
	try
	{
		kind.m_Call = std::make_shared<CCapturedCall>(bytes);
	}
	catch (const CFailure &failure)
	{
		throw CFailure("The capture " + Quoted(path) + " cannot be shown. " + failure.what());
	}
	kind.m_Name = "capture";
	kind.m_ParticleCount = kind.m_MaxParticleCount = std::max(u32(kind.m_Call->Particles().size()), 1u);
	kind.m_Create = [call = kind.m_Call](u32, u32) { return std::make_unique<CCaptureScene>(call); };
	kind.m_Details = "";
	kind.m_FrameCount = 1;
	kind.m_Source = Quoted(path) + ", " + Grouped(bytes.size()) + " bytes";
	return kind;
}

SSceneKind ReadFileScene(const std::string &path, const SCloudOptions &options)
{
	const CMappedFile file(path);
	if (CCapturedCall::IsCapture(file.Bytes()))
		return CaptureScene(path, file.Bytes());
	const auto start = std::chrono::steady_clock::now();
	const std::shared_ptr<const SPointCloud> cloud = Read(path, file.Bytes(), options);
	const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - start;
	char seconds[32];
	std::snprintf(seconds, sizeof(seconds), "%.2f", duration.count());

	SSceneKind kind = {};
	kind.m_Name = cloud->m_Shapes.empty() ? "points" : "splats";
	kind.m_ParticleCount = u32(cloud->m_Positions.size());
	kind.m_MaxParticleCount = kind.m_ParticleCount;
	kind.m_Create = [cloud](u32 pointCount, u32) { return std::make_unique<CFileScene>(cloud, pointCount); };
	kind.m_Details = "";
	kind.m_Up = cloud->m_YPointsDown ? EUp::MinusY : EUp::Y;
	kind.m_Source = Quoted(path) + ", " + Grouped(file.Bytes().size()) + " bytes read in " + seconds + " s" +
	                FarPoints(*cloud) + LeftOut(*cloud) + Added(options);
	return kind;
}
} // namespace Viewer
