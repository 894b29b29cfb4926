// Read from CRun::Run down: warm up, draw the frames, then judge the last one.

#include "headless_run.h"

#include "kr_profiler_recorder.h"

#include "exact_order.h"
#include "failure.h"
#include "frame_drawer.h"
#include "gl_context.h"
#include "library_reports.h"
#include "orbit.h"
#include "output_file.h"
#include "picture.h"
#include "report.h"
#include "scene.h"
#include "sort_times.h"
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <unistd.h>

namespace Viewer
{
namespace
{
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
		VX_WRAPS void Add(const std::vector<u32> &indices)
		{
			for (const u32 index : indices)
				for (u32 byte = 0; byte < 4; ++byte)
					m_Hash = (m_Hash ^ (index >> (8 * byte) & 0xFF)) * 0x100000001B3ull;
		}
		u64 Value() const { return m_Hash; }

	private:
		u64 m_Hash = 0xCBF29CE484222325ull; // FNV-1a, 64 bits, over four bytes an index, the lowest first
	};

	constexpr u64 kTraceMemorySize = 18 << 20; // 78 scopes in each of the most frames that a run may have

	class CRun
	{
	public:
		explicit CRun(const SArguments &arguments)
			: m_Arguments(arguments)
			, m_Drawer(arguments.m_Width, arguments.m_Height, arguments.m_IndexBits)
			, m_TraceMemory(arguments.m_TraceFile.empty() ? 0 : kTraceMemorySize)
			, m_Scene(arguments.m_Scene->m_Create(arguments.m_ParticleCount, arguments.m_Seed))
		{
		}

		SReport Run()
		{
			WarmUp();
			DrawFrames();
			DrawPictures();
			if (m_Arguments.m_Wipe.m_Kind != EWipe::None)
				DrawWipe();
			m_Report.m_Arguments = m_Arguments;
			m_Report.m_Driver = m_Context.Description();
			m_Report.m_AssertionCount = u32(m_LibraryReports.Assertions().size());
			m_Report.m_SlowPaths = CLibraryReports::SlowPaths();
			return m_Report;
		}

		void WritePictures(COutputFolder &folder)
		{
			std::vector<SNamedPicture> files;
			std::vector<SLabelled> panels;
			for (size_t i = 0; i < m_Pictures.size(); ++i)
			{
				files.push_back({m_Report.m_Pictures[i].m_FileName, &m_Pictures[i]});
				panels.push_back({&m_Pictures[i], m_Labels[i]});
			}
			const SPicture comparison =
				SideBySide(panels, Legend(m_Arguments.m_Colour, m_Drawer.Renderer().MostLayers()));
			files.push_back({"comparison.png", &comparison});
			if (m_Arguments.m_Wipe.m_Kind != EWipe::None)
				files.push_back({"wipe.png", &m_Wipe});
			folder.Write(files);
		}

		const std::vector<u8> &Trace() const { return m_Trace; }
		const std::vector<u8> &Capture() const { return m_Capture; }

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
			Profiler::CTraceRecorder recorder(m_TraceMemory.data(), m_TraceMemory.size());
			recorder.NameThread("main");
			CSortClock clock(m_TraceMemory.empty() ? null : &recorder);
			CIndexHash hash;
			std::vector<SSortTimes> times;
			std::vector<double> frameTimes;
			std::optional<SDrawn> previous;
			m_Drawer.Sorter().SetThreadCount(m_Arguments.m_ThreadCount);
			for (u32 number = 0; number < m_Arguments.m_FrameCount; ++number)
			{
				m_Progress.Show("drawing: frame", number + 1, m_Arguments.m_FrameCount);
				const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
				VX_PROFILE_SCOPE("Frame");
				{
					VX_PROFILE_SCOPE("Simulate");
					m_Scene->Advance();
				}
				const SFrame frame = DescribedFrame();
				if (previous)
					hash.Add(m_Drawer.Renderer().ReadIndices(*previous));
				m_Drawer.SetFrame(frame);
				if (number + 1 == m_Arguments.m_FrameCount && !m_Arguments.m_CaptureFile.empty())
					m_Drawer.Sorter().CaptureNext(&m_Capture);
				{
					VX_PROFILE_SCOPE("Sort and draw");
					previous = m_Drawer.DrawSorted(order);
				}
				times.push_back(clock.EndFrame());
				const std::chrono::duration<double, std::micro> duration = std::chrono::steady_clock::now() - start;
				frameTimes.push_back(duration.count());
			}
			hash.Add(m_Drawer.Renderer().ReadIndices(*previous));
			m_Report.m_Times = MedianOf(times);
			m_Report.m_FrameTime = MedianOf(frameTimes);
			m_Report.m_IndexHash = hash.Value();
			if (!m_TraceMemory.empty())
				recorder.WriteChromeTrace(AppendTo, &m_Trace);
			CountFrame(previous->m_DrawCalls);
		}

		SFrame DescribedFrame()
		{
			VX_PROFILE_SCOPE("Describe the frame");
			SFrame frame = m_Scene->Frame();
			frame.m_Camera = Upright(frame.m_Camera, m_Arguments.m_Up);
			return frame;
		}

		void CountFrame(const std::vector<SDrawCall> &drawCalls)
		{
			const SFrame &frame = m_Drawer.Frame();
			m_Report.m_ParticleCount = frame.m_ParticleCount;
			m_Report.m_PageCount = frame.m_RenderedCounts.Count();
			m_Report.m_DrawCallCount = u32(drawCalls.size());
			for (const SDrawCall &drawCall : drawCalls)
				m_Report.m_IndexCount += drawCall.m_IndexCount;
			for (u32 page = 0; page < frame.m_RenderedCounts.Count(); ++page)
			{
				const u32 rendered = frame.m_RenderedCounts[page];
				m_Report.m_EmptyPageCount += rendered == 0 ? 1 : 0;
				m_Report.m_MixedPageCount += rendered != 0 && rendered < frame.m_Positions[page].Count() ? 1 : 0;
			}
		}

		// The last frame again, in every order worth seeing, and in the exact one.
		void DrawPictures()
		{
			const CExactOrder exact(m_Drawer.Frame());
			m_Drawer.DrawIndices(exact.SortedIndices());
			const SPicture reference = m_Drawer.Renderer().ReadPicture();
			for (const SPictureOfOrder &picture : m_Scene->Pictures())
			{
				const SDrawn drawn = Draw(picture.m_Order, exact);
				const SPicture light = m_Drawer.Renderer().ReadPicture();
				m_Report.m_Pictures.push_back({picture.m_Order, picture.m_FileName, Compare(light, reference),
					exact.Measure(picture.m_Order, drawn.m_DrawCalls, m_Drawer.Renderer().ReadIndices(drawn))});
				m_Pictures.push_back(Coloured(picture.m_Order, exact, light, reference));
				m_Labels.push_back(picture.m_Label);
			}
		}

		// In the order that is right, beside another way.
		void DrawWipe()
		{
			constexpr s32 kTurnSteps = 160; // 40 degrees: from there, a frozen order is seen to be wrong
			const SWipe &wipe = m_Arguments.m_Wipe;
			const SPictureOfOrder right = m_Scene->Pictures().back();
			SOrbit elsewhere;
			elsewhere.m_TurnSteps = kTurnSteps;
			CWipeDrawer drawer(m_Drawer);
			std::vector<u32> otherIndices;
			drawer.DrawOther(
				wipe.m_Kind, right.m_Order, {}, Moved(m_Drawer.Frame().m_Camera, elsewhere), &otherIndices);
			const SDrawn drawn = m_Drawer.DrawSorted(right.m_Order);
			const SWipeLabels labels = WipeLabels(wipe.m_Kind, right.m_Label);
			if (wipe.m_Kind == EWipe::KeyBits && right.m_Order != EOrder::ByProperty)
			{
				const CExactOrder exact(m_Drawer.Frame());
				m_Report.m_Orders = {
					{labels.m_Left,  MeasurePairs(exact.DistancesOf(m_Drawer.Renderer().ReadIndices(drawn)))},
					{labels.m_Right, MeasurePairs(exact.DistancesOf(otherIndices))                          }
                };
			}
			drawer.Join(wipe);
			m_Wipe = WithDivider(m_Drawer.Renderer().ReadPicture(), DividerColumn(wipe, m_Arguments.m_Width),
				labels.m_Left, labels.m_Right);
		}

		SDrawn Draw(EOrder order, const CExactOrder &exact)
		{
			return order == EOrder::Storage ? m_Drawer.DrawIndices(exact.StorageIndices()) : m_Drawer.DrawSorted(order);
		}

		/// The picture of an order, known as light, in the colours that were asked for.
		SPicture Coloured(EOrder order, const CExactOrder &exact, const SPicture &light, const SPicture &reference)
		{
			if (m_Arguments.m_Colour == EColour::Light)
				return light;
			if (m_Arguments.m_Colour == EColour::Error)
				return DifferenceMap(light, reference);
			m_Drawer.Renderer().SetColour(m_Arguments.m_Colour);
			Draw(order, exact);
			m_Drawer.Renderer().SetColour(EColour::Light);
			return m_Drawer.Renderer().ReadPicture();
		}

		SArguments m_Arguments;
		CLibraryReports m_LibraryReports;
		CProgress m_Progress;
		CSurfacelessContext m_Context;
		CFrameDrawer m_Drawer;
		std::vector<u8> m_TraceMemory;
		std::unique_ptr<IScene> m_Scene;

		SReport m_Report;
		std::vector<SPicture> m_Pictures;
		SPicture m_Wipe;
		std::vector<std::string> m_Labels;
		std::vector<u8> m_Trace;
		std::vector<u8> m_Capture;
	};
} // namespace

void RunHeadless(const SArguments &arguments)
{
	std::optional<COutputFolder> folder;
	if (!arguments.m_OutFolder.empty())
		folder.emplace(arguments.m_OutFolder);
	std::optional<COutputFile> traceFile;
	if (!arguments.m_TraceFile.empty())
		traceFile.emplace(arguments.m_TraceFile);
	std::optional<COutputFile> captureFile;
	if (!arguments.m_CaptureFile.empty())
		captureFile.emplace(arguments.m_CaptureFile);

	SReport report;
	{
		CRun run(arguments);
		report = run.Run();
		if (folder)
			run.WritePictures(*folder);
		if (traceFile)
			traceFile->Write(run.Trace());
		if (captureFile)
			captureFile->Write(run.Capture());
	}
	Print(report);
	if (std::fflush(stdout) != 0)
		throw CFailure("The figures cannot be written to standard output.");
}
} // namespace Viewer
