// particle_viewer: simulates a scene, sorts every frame straight into mapped index memory, draws it, and says
// how far each picture is from the exact answer; or plays the scene in a window.

#include "arguments.h"
#include "capture_run.h"
#include "failure.h"
#include "headless_run.h"
#include "replay_run.h"
#include "window_run.h"
#include <cstdio>
#include <new>
#include <optional>

namespace Viewer
{
namespace
{
	constexpr int kNotAsRecorded = 1;

	int RunProgram(int argc, char **argv)
	{
		const std::optional<SArguments> arguments = ParseArguments(argc, argv);
		if (!arguments)
			return 0;
		if (!arguments->m_ReplayFile.empty())
			return RunReplay(arguments->m_ReplayFile) ? 0 : kNotAsRecorded;
		if (arguments->m_Scene->m_Call != null && !arguments->m_InWindow)
			return RunCapture(*arguments) ? 0 : kNotAsRecorded;
		if (arguments->m_InWindow)
			RunWindow(*arguments);
		else
			RunHeadless(*arguments);
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
