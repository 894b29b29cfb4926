// particle_viewer: simulates a scene, sorts every frame straight into mapped index memory, draws it without a display,
// and says how far each picture is from the exact answer.

#include "vx_assert.h"

#include "kr_log_unique.h"

#include "arguments.h"
#include "exact_order.h"
#include "failure.h"
#include "gl_context.h"
#include "picture.h"
#include "renderer.h"
#include "report.h"
#include "scene.h"
#include "sort_frame.h"
#include "sort_times.h"
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <unistd.h>

namespace Viewer
{
namespace
{
	/// The library's reports, kept for the table.
	class CLibraryReports
	{
	public:
		CLibraryReports()
		{
			Assert::SetReportHandler(OnAssertion, &m_AssertionCount);
			CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler([](const auto &, void *) {}, null);
		}
		~CLibraryReports()
		{
			CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler(null, null);
			Assert::SetReportHandler(null, null);
		}
		CLibraryReports(const CLibraryReports &) = delete;
		CLibraryReports &operator=(const CLibraryReports &) = delete;

		u32 AssertionCount() const { return m_AssertionCount; }
		static std::vector<std::string> SlowPaths()
		{
			std::vector<std::string> messages;
			for (const CLogUniqueCollection::SEntry &entry : CPerfHotspotsRegistry::Registry()->Snapshot())
				messages.push_back(entry.m_Message);
			return messages;
		}

	private:
		static int OnAssertion(const Assert::SReport &report, void *count)
		{
			++*static_cast<u32 *>(count);
			std::fprintf(stderr, "%s(%d): %s\n", report.m_File, report.m_Line, report.m_Message);
			return Assert::Decision_Ignore;
		}

		u32 m_AssertionCount = 0;
	};

	/// A line that says how far the work is, where somebody watches.
	class CProgress
	{
	public:
		~CProgress()
		{
			if (m_Shown)
				std::fputs("\r\033[K", stderr);
		}
		void Show(const char *what, u32 done, u32 of)
		{
			if (!m_Watched)
				return;
			std::fprintf(stderr, "\r\033[K%s %u of %u", what, done, of);
			std::fflush(stderr);
			m_Shown = true;
		}

	private:
		bool m_Watched = isatty(STDERR_FILENO) != 0;
		bool m_Shown = false;
	};

	class CIndexHash
	{
	public:
		void Add(const std::vector<u32> &indices)
		{
			for (const u32 index : indices)
				for (u32 byte = 0; byte < 4; ++byte)
					m_Hash = (m_Hash ^ (index >> (8 * byte) & 0xFF)) * 0x100000001B3ull;
		}
		u64 Value() const { return m_Hash; }

	private:
		u64 m_Hash = 0xCBF29CE484222325ull; // FNV-1a, 64 bits, over four bytes an index, the lowest first
	};

	std::unique_ptr<IScene> CreateScene(const SArguments &arguments)
	{
		switch (arguments.m_Scene)
		{
		case EScene::Debris:
			return CreateDebrisScene(arguments.m_ParticleCount, arguments.m_Seed);
		case EScene::Interleave:
			return CreateInterleaveScene(arguments.m_ParticleCount, arguments.m_Seed);
		default:
			return CreateSmokeScene(arguments.m_ParticleCount, arguments.m_Seed);
		}
	}

	class CRun
	{
	public:
		explicit CRun(const SArguments &arguments)
			: m_Arguments(arguments)
			, m_IndexType(
				  arguments.m_IndexBits == 16 ? CTriangleSorter::IndexTypeUint16 : CTriangleSorter::IndexTypeUint32)
			, m_Renderer(arguments.m_Width, arguments.m_Height)
			, m_Scene(CreateScene(arguments))
		{
		}

		SReport Run()
		{
			WarmUp();
			DrawFrames();
			DrawPictures();
			m_Report.m_Arguments = m_Arguments;
			m_Report.m_Driver = m_Context.Description();
			m_Report.m_AssertionCount = m_LibraryReports.AssertionCount();
			m_Report.m_SlowPaths = CLibraryReports::SlowPaths();
			return m_Report;
		}

		void WritePictures(COutputFolder &folder) const
		{
			std::vector<SNamedPicture> files;
			std::vector<SLabelled> panels;
			for (size_t i = 0; i < m_Pictures.size(); ++i)
			{
				files.push_back({m_Report.m_Pictures[i].m_FileName, &m_Pictures[i]});
				panels.push_back({&m_Pictures[i], m_Labels[i]});
			}
			const SPicture comparison = SideBySide(panels);
			files.push_back({"comparison.png", &comparison});
			folder.Write(files);
		}

	private:
		void WarmUp()
		{
			const u32 stepCount = m_Scene->WarmUpStepCount();
			for (u32 step = 0; step < stepCount; ++step)
			{
				m_Progress.Show("simulating: step", step + 1, stepCount);
				m_Scene->Advance();
			}
		}

		// Frame after frame, as an engine runs. While the GPU draws one, the next is simulated; then its indices
		// are read back for the hash, which an engine has no need of.
		void DrawFrames()
		{
			const EOrder order = m_Scene->Pictures().back().m_Order;
			CSortClock clock;
			CIndexHash hash;
			std::optional<SDrawn> previous;
			for (u32 number = 0; number < m_Arguments.m_FrameCount; ++number)
			{
				m_Progress.Show("drawing: frame", number + 1, m_Arguments.m_FrameCount);
				m_Scene->Advance();
				m_Frame = m_Scene->Frame();
				if (previous)
					hash.Add(m_Renderer.ReadIndices(*previous));
				m_Renderer.SetFrame(m_Frame);
				previous = DrawSorted(order);
				clock.EndFrame();
			}
			hash.Add(m_Renderer.ReadIndices(*previous));
			m_Report.m_Times = clock.Median();
			m_Report.m_IndexHash = hash.Value();
			CountFrame(previous->m_DrawCalls);
		}

		SDrawn DrawSorted(EOrder order)
		{
			const std::vector<SDrawCall> drawCalls = order == EOrder::ByTriangle
			                                             ? PlanTriangleDrawCalls(m_Frame, m_IndexType)
			                                             : PlanDrawCalls(m_Frame, m_IndexType);
			m_Sorter.Sort(m_Frame, order, drawCalls, m_Renderer.MapIndices(IndexMemorySize(drawCalls)));
			return m_Renderer.Draw(drawCalls);
		}

		/// Draws with indices that are ready, in one draw call.
		SDrawn DrawIndices(const std::vector<u32> &indices)
		{
			SDrawCall drawCall;
			drawCall.m_IndexCount = u32(indices.size());
			u8 *const mapped = m_Renderer.MapIndices(IndexMemorySize({drawCall}));
			std::memcpy(mapped, indices.data(), indices.size() * sizeof(u32));
			return m_Renderer.Draw({drawCall});
		}

		void CountFrame(const std::vector<SDrawCall> &drawCalls)
		{
			m_Report.m_ParticleCount = m_Frame.m_ParticleCount;
			m_Report.m_PageCount = m_Frame.m_RenderedCounts.Count();
			m_Report.m_DrawCallCount = u32(drawCalls.size());
			for (const SDrawCall &drawCall : drawCalls)
				m_Report.m_IndexCount += drawCall.m_IndexCount;
			for (u32 page = 0; page < m_Frame.m_RenderedCounts.Count(); ++page)
			{
				const u32 rendered = m_Frame.m_RenderedCounts[page];
				m_Report.m_EmptyPageCount += rendered == 0 ? 1 : 0;
				m_Report.m_MixedPageCount += rendered != 0 && rendered < m_Frame.m_Positions[page].Count() ? 1 : 0;
			}
		}

		// The last frame again, in every order worth seeing, and in the exact one.
		void DrawPictures()
		{
			const CExactOrder exact(m_Frame);
			DrawIndices(exact.SortedIndices());
			const SPicture reference = m_Renderer.ReadPicture();
			for (const SPictureOfOrder &picture : m_Scene->Pictures())
			{
				const SDrawn drawn = picture.m_Order == EOrder::Storage ? DrawIndices(exact.StorageIndices())
				                                                        : DrawSorted(picture.m_Order);
				m_Pictures.push_back(m_Renderer.ReadPicture());
				m_Labels.push_back(picture.m_Label);
				m_Report.m_Pictures.push_back(
					{picture.m_Order, picture.m_FileName, Compare(m_Pictures.back(), reference),
						exact.Measure(picture.m_Order, drawn.m_DrawCalls, m_Renderer.ReadIndices(drawn))});
			}
		}

		SArguments m_Arguments;
		CTriangleSorter::EIndexType m_IndexType;
		CLibraryReports m_LibraryReports;
		CProgress m_Progress;
		CSurfacelessContext m_Context;
		CRenderer m_Renderer;
		std::unique_ptr<IScene> m_Scene;
		CFrameSorter m_Sorter;

		SFrame m_Frame;
		SReport m_Report;
		std::vector<SPicture> m_Pictures;
		std::vector<std::string> m_Labels;
	};

	int RunProgram(int argc, char **argv)
	{
		const std::optional<SArguments> arguments = ParseArguments(argc, argv);
		if (!arguments)
			return 0;
		std::optional<COutputFolder> folder;
		if (!arguments->m_OutFolder.empty())
			folder.emplace(arguments->m_OutFolder);

		SReport report;
		{
			CRun run(*arguments);
			report = run.Run();
			if (folder)
				run.WritePictures(*folder);
		}
		Print(report);
		if (std::fflush(stdout) != 0)
			throw CFailure("The figures cannot be written to standard output.");
		return 0;
	}
} // namespace
} // namespace Viewer

int main(int argc, char **argv)
{
	constexpr int kFailure = 2;
	try
	{
		return Viewer::RunProgram(argc, argv);
	}
	catch (const Viewer::CFailure &failure)
	{
		std::fprintf(stderr, "particle_viewer: %s\n", failure.what());
	}
	catch (const std::bad_alloc &)
	{
		std::fprintf(stderr, "particle_viewer: There is not enough memory for this.\n");
	}
	return kFailure;
}
