#include "capture_run.h"

#include "capture_words.h"
#include "failure.h"
#include "frame_drawer.h"
#include "gl_context.h"
#include "library_reports.h"
#include "picture.h"
#include "replay_run.h"
#include <cstdio>
#include <optional>

namespace Viewer
{
namespace
{
	void WritePictures(const SArguments &arguments, CCaptureScene &scene, COutputFolder &folder)
	{
		const CSurfacelessContext context;
		CFrameDrawer drawer(arguments.m_Width, arguments.m_Height, arguments.m_IndexBits);
		const bool isOrder = arguments.m_Colour == EColour::Order;
		drawer.Renderer().SetColour(isOrder ? EColour::Light : arguments.m_Colour);
		const std::vector<SPictureOfOrder> orders = scene.Pictures();
		std::vector<SPicture> pictures;
		for (const SPictureOfOrder &order : orders)
		{
			scene.SetLook({order.m_Order, arguments.m_Shape, 100, arguments.m_FirstCount, isOrder});
			SFrame frame = scene.Frame();
			frame.m_Camera = Upright(frame.m_Camera, arguments.m_Up);
			drawer.SetFrame(frame);
			drawer.DrawIndices(scene.Indices());
			pictures.push_back(drawer.Renderer().ReadPicture());
		}
		std::vector<SNamedPicture> files;
		std::vector<SLabelled> panels;
		for (size_t i = 0; i < orders.size(); ++i)
		{
			files.push_back({orders[i].m_FileName, &pictures[i]});
			panels.push_back({&pictures[i], orders[i].m_Label});
		}
		const SLegend legend =
			scene.IsBroken() && isOrder ? SLegend() : Legend(arguments.m_Colour, drawer.Renderer().MostLayers());
		const SPicture comparison = SideBySide(panels, legend);
		files.push_back({"comparison.png", &comparison});
		folder.Write(files);
	}

	void PrintPictures(const SArguments &arguments, const CCaptureScene &scene)
	{
		const EOrder order = scene.Pictures().back().m_Order;
		std::printf("\nprimitives      %s\n", FirstWords(arguments.m_FirstCount, scene.Count(order)).c_str());
		for (const SOutputSentence &sentence : OutputWords(scene, order))
			std::printf("    %s\n", sentence.m_Sentence.c_str());
		std::printf("    %s\n", PlaceWords(scene, order).c_str());
	}
} // namespace

bool RunCapture(const SArguments &arguments)
{
	std::optional<COutputFolder> folder;
	if (!arguments.m_OutFolder.empty())
		folder.emplace(arguments.m_OutFolder);
	const CLibraryReports libraryReports;
	CCaptureScene scene(arguments.m_Scene->m_Call);
	if (folder)
		WritePictures(arguments, scene, *folder);
	CCapturedCall &call = *arguments.m_Scene->m_Call;
	PrintReplay(arguments.m_Scene->m_Source, call.Sort(), call.Findings(), call.Result(), libraryReports);
	PrintPictures(arguments, scene);
	if (std::fflush(stdout) != 0)
		throw CFailure("The figures cannot be written to standard output.");
	return call.Result().Good();
}
} // namespace Viewer
