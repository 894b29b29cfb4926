// Reads the command line with CLI11 and turns whatever is wrong with it into one sentence.

#include "arguments.h"

#include "actions.h"
#include "failure.h"
#include "file_scene.h"
#include "text.h"
#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <sstream>

namespace Viewer
{
namespace
{
	constexpr u32 kMaxFrameCount = 10000;
	constexpr u32 kMinSide = 16;
	constexpr u32 kMaxSide = 8192;
	constexpr u32 kMaxThreadCount = 256;
	constexpr u32 kMaxOutlierDistance = 1000000;

	const char *const kAbout =
		"Draws transparent particles unsorted and sorted, without a display, and says what the sort cost and how far\n"
		"each picture is from the exact answer, which is the same frame, sorted in double precision. With --window,\n"
		"it plays the scene instead.";

	const char *const kDetails =
		"Colours\n"
		"  light       what the scene looks like\n"
		"  order       when a primitive was drawn, from the first to the last\n"
		"  overdraw    how many layers were drawn over a pixel: the same in every order\n"
		"  error       how far a pixel is from the exact answer, in steps of 1/255; black where it is the same\n"
		"The figures are those of light, whatever the colours.\n"
		"\n"
		"16-bit indices address 65,535 vertices, so 16,383 billboards. A scene with more is split into draw calls of\n"
		"whole pages, each sorted by itself: the order then holds inside every draw call, not across them. The\n"
		"figures say so. Scenes with an index list are not split.\n"
		"\n"
		"FILE may be a capture from any engine. It is checked, sorted, and compared with what was recorded. Each\n"
		"primitive is drawn where its particle is, coloured by its number in the drawing order; indices that differ\n"
		"are lit. With --out, the pictures are unsorted.png, sorted_here.png, comparison.png, and recorded.png if\n"
		"the capture has an output. --replay gives the same result in words, without pictures.\n"
		"\n"
		"Exit code: 0 if all went well; 1 if a captured sort breaks a rule or writes other indices than recorded; 2\n"
		"if the run failed: then standard error has one sentence, and no file was written.";

	u32 ParseNumber(const std::string &option, const std::string &text, u32 low, u32 high)
	{
		u32 number = 0;
		const char *const end = text.data() + text.size();
		const auto [stop, error] = std::from_chars(text.data(), end, number);
		if (error != std::errc() || stop != end || number < low || number > high)
			throw CFailure(option + " takes a whole number from " + std::to_string(low) + " to " +
						   std::to_string(high) + ", not '" + text + "'.");
		return number;
	}

	// Every option is read as text, so that the sentence about a wrong one is ours.
	struct STexts
	{
		std::string m_Scene = SceneKinds().front().m_Name;
		std::vector<std::string> m_Files;
		std::string m_SortBy;
		bool m_SkipBad = false;
		std::string m_Outlier;
		std::string m_Particles;
		std::string m_Up;
		std::optional<std::string> m_Frames;
		std::string m_Seed = "1";
		std::optional<std::string> m_Width;
		std::optional<std::string> m_Height;
		std::string m_IndexType = "32";
		std::string m_Threads = "1";
		std::string m_Colour = "light";
		std::string m_Wipe = "none";
		std::string m_WipeAt = "50";
		std::string m_First;
		std::string m_Shape = "triangles";
		std::string m_Out;
		std::string m_Trace;
		std::string m_Capture;
		std::string m_Replay;
		bool m_Window = false;
	};

	std::string ParticlesHelp()
	{
		constexpr u32 kScenesPerLine = 4;
		std::string text = "Particles in every frame; by default";
		u32 number = 0;
		for (const SSceneKind &kind : SceneKinds())
		{
			text += number == 0 ? "\n" : number % kScenesPerLine == 0 ? ",\n" : ", ";
			text += std::to_string(kind.m_ParticleCount) + " (" + kind.m_Name + ")";
			++number;
		}
		return text;
	}

	std::string FramesHelp()
	{
		const u32 most = SceneKinds().front().m_FrameCount;
		std::string text = "Frames to simulate, sort and draw; " + std::to_string(most) + " by default";
		for (const SSceneKind &kind : SceneKinds())
			if (kind.m_FrameCount != most)
				text += ", " + std::to_string(kind.m_FrameCount) + " of " + kind.m_Name;
		return text + ".\nThe last one is shown. With this option, a window closes after the last frame";
	}

	// A scene's name stands before the first of its lines.
	std::string ScenesHelp()
	{
		constexpr size_t kColumn = 14;
		std::string text = "Scenes\n";
		for (const SSceneKind &kind : SceneKinds())
		{
			std::istringstream lines(kind.m_Details);
			std::string first = "  " + std::string(kind.m_Name);
			for (std::string line; std::getline(lines, line); first.clear())
				text += first + std::string(kColumn - first.size(), ' ') + line + "\n";
		}
		return text + "\n";
	}

	void Declare(CLI::App &app, STexts &texts)
	{
		// Given twice, the last one counts: scripts put a user's options after their own.
		const auto add = [&app](const char *name, const char *type, auto &text, const std::string &help)
		{ app.add_option(name, text, help)->type_name(type)->take_last(); };
		app.footer(ScenesHelp() + KeysHelp() + "\n" + kDetails);
		add("--scene", "NAME", texts.m_Scene, SceneNames() + "; " + SceneKinds().front().m_Name + " by default");
		app.add_option("FILE,--ply,--splat", texts.m_Files,
			   "A file to show instead of a scene: points or splats (PLY, .splat, .spz or .sog), or a\n"
			   "captured draw call. Its contents tell the format, so --ply and --splat mean the same")
			->option_text(" ");
		add("--sort-by", "NAME", texts.m_SortBy,
			"A property of the file to sort by instead of the distance; the lowest value is drawn first");
		add("--up", "AXIS", texts.m_Up,
			"The axis that points upwards: y, -y, z, -z, x or -x. By default it is -y for splats,\n"
			"except those of .spz, and otherwise y");
		app.add_flag("--skip-bad", texts.m_SkipBad,
			"Leaves out the points of the file that are damaged, and says how many there are");
		add("--outlier", "RADII", texts.m_Outlier,
			"Adds a point to those of the file, so many radii of the cloud away from it, which\n"
			"stretches the range of 16-bit keys");
		add("--particles", "N", texts.m_Particles, ParticlesHelp());
		add("--frames", "N", texts.m_Frames, FramesHelp());
		add("--seed", "N", texts.m_Seed,
			"Seed of all randomness: one seed always gives the same index buffers; 1 by default");
		add("--width", "N", texts.m_Width, "Width of a picture in pixels; 640 by default, 960 in a window");
		add("--height", "N", texts.m_Height, "Height of a picture in pixels; 360 by default, 860 in a window");
		add("--index-type", "BITS", texts.m_IndexType, "Bits of an index, 16 or 32; 32 by default");
		add("--threads", "N", texts.m_Threads,
			"Threads that share a sort, which writes the same indices; 1 by default");
		add("--wipe", "NAME", texts.m_Wipe,
			"Draws a frame in two ways, left and right of a divider, and writes wipe.png:\n"
			"unsorted and sorted (unsorted), sorted for another camera and for this one (frozen), by\n"
			"keys of 32 and of 16 bits (16-bit), the picture and its error (error); or none");
		add("--wipe-at", "PERCENT", texts.m_WipeAt, "Where the divider stands, from the left; 50 by default");
		add("--colour,--color", "NAME", texts.m_Colour,
			"What colours show: light, order, overdraw or error. By default light; order for a\n"
			"capture");
		add("--first", "N", texts.m_First,
			"For a capture: how many primitives to draw, from the first on; all by default");
		add("--shape", "NAME", texts.m_Shape,
			"For a capture: what stands for a primitive, triangles, quads or points; triangles by\n"
			"default");
		add("--trace", "FILE", texts.m_Trace,
			"Writes how long each stage of every frame takes to this file, for Perfetto or\n"
			"chrome://tracing");
		add("--capture", "FILE", texts.m_Capture, "Writes the first draw call of the last frame to this file");
		add("--replay", "FILE", texts.m_Replay,
			"Sorts a captured draw call and compares it with the record, instead of drawing; other\n"
			"options have no effect");
		add("--out", "DIR", texts.m_Out,
			"Folder for the pictures, which is made if need be; by default there are only figures");
		app.add_flag("--window", texts.m_Window,
			"Plays the scene in a window, where you can change and watch everything about its sort.\n"
			"Files dropped on it are shown. With --out, F12 and the end of --frames write\n"
			"picture_N.png and window_N.png");
	}

	const SSceneKind *Scene(const CLI::App &app, const STexts &texts, const SCloudOptions &cloudOptions)
	{
		if (texts.m_Files.size() > 1)
			throw CFailure("Of files only one can be shown, not both " + Quoted(texts.m_Files[0]) + " and " +
						   Quoted(texts.m_Files[1]) + ".");
		if (!texts.m_Files.empty() && app.count("--scene") != 0)
			throw CFailure("Either a scene can be shown or a file, not both.");
		if (!texts.m_Files.empty())
			return AddSceneKind(ReadFileScene(texts.m_Files[0], cloudOptions));
		if (app.count("--sort-by") != 0)
			throw CFailure("--sort-by goes with a file, of which it names a property.");
		if (texts.m_SkipBad && !texts.m_Window)
			throw CFailure("--skip-bad goes with a file, of which it leaves points out.");
		if (cloudOptions.m_OutlierDistance != 0 && !texts.m_Window)
			throw CFailure("--outlier goes with a file, to whose points it adds one.");
		const SSceneKind *const scene = FindSceneKind(texts.m_Scene);
		if (scene == null)
			throw CFailure("--scene takes " + SceneNames() + ", not '" + texts.m_Scene + "'.");
		return scene;
	}

	// A captured call is drawn as it is, but for how it is looked at.
	void CheckCaptureOptions(const CLI::App &app, const SSceneKind &scene)
	{
		const bool isCapture = scene.m_Call != null;
		for (const char *const option : {"--first", "--shape"})
			if (!isCapture && app.count(option) != 0)
				throw CFailure(std::string(option) + " goes with a captured draw call, named like a file.");
		for (const char *const option : {"--sort-by", "--skip-bad", "--outlier", "--particles", "--seed",
				 "--index-type", "--threads", "--wipe", "--trace", "--capture"})
			if (isCapture && app.count(option) != 0)
				throw CFailure(std::string(option) + " goes with scenes, points and splats: a captured draw call is as "
													 "it was.");
	}

	SArguments Check(const CLI::App &app, const STexts &texts)
	{
		if (texts.m_IndexType != "16" && texts.m_IndexType != "32")
			throw CFailure("--index-type takes 16 or 32, not '" + texts.m_IndexType + "'.");
		const std::optional<EColour> colour = FindColour(texts.m_Colour);
		if (!colour)
			throw CFailure("--colour takes light, order, overdraw or error, not '" + texts.m_Colour + "'.");
		const auto refuseEmpty = [&app](const char *option, const char *what, const std::string &text)
		{
			if (app.count(option) != 0 && text.empty())
				throw CFailure(std::string(option) + " takes the name of a " + what + ", not ''.");
		};
		refuseEmpty("--out", "folder", texts.m_Out);
		refuseEmpty("--trace", "file", texts.m_Trace);
		refuseEmpty("--capture", "file", texts.m_Capture);
		refuseEmpty("--replay", "file", texts.m_Replay);
		if (texts.m_Window && *colour == EColour::Error)
			throw CFailure("--window shows light, order or overdraw; errors take the exact answer to every frame.");
		for (const char *const option : {"--trace", "--capture", "--replay"})
			if (texts.m_Window && app.count(option) != 0)
				throw CFailure(std::string(option) + " is for runs without --window.");

		const std::optional<EWipe> wipe = FindWipe(texts.m_Wipe);
		if (!wipe)
			throw CFailure("--wipe takes unsorted, frozen, 16-bit, error or none, not '" + texts.m_Wipe + "'.");
		const std::optional<EUp> up = FindUp(texts.m_Up);
		if (app.count("--up") != 0 && !up)
			throw CFailure("--up takes y, -y, z, -z, x or -x, not '" + texts.m_Up + "'.");

		const std::optional<EShape> shape = FindShape(texts.m_Shape);
		if (!shape)
			throw CFailure("--shape takes triangles, quads or points, not '" + texts.m_Shape + "'.");

		SArguments arguments;
		arguments.m_FrameCount = texts.m_Frames ? ParseNumber("--frames", *texts.m_Frames, 1, kMaxFrameCount) : 0;
		arguments.m_InWindow = texts.m_Window;
		arguments.m_Seed = ParseNumber("--seed", texts.m_Seed, 0, 0xFFFFFFFFu);
		arguments.m_Width =
			ParseNumber("--width", texts.m_Width.value_or(texts.m_Window ? "960" : "640"), kMinSide, kMaxSide);
		arguments.m_Height =
			ParseNumber("--height", texts.m_Height.value_or(texts.m_Window ? "860" : "360"), kMinSide, kMaxSide);
		arguments.m_IndexBits = texts.m_IndexType == "16" ? 16 : 32;
		arguments.m_Wipe = {*wipe, float(ParseNumber("--wipe-at", texts.m_WipeAt, 0, 100)) / 100.0f};
		arguments.m_ThreadCount = ParseNumber("--threads", texts.m_Threads, 1, kMaxThreadCount);
		arguments.m_Colour = *colour;
		arguments.m_OutFolder = texts.m_Out;
		arguments.m_TraceFile = texts.m_Trace;
		arguments.m_CaptureFile = texts.m_Capture;
		arguments.m_ReplayFile = texts.m_Replay;
		arguments.m_Shape = *shape;
		if (app.count("--first") != 0)
			arguments.m_FirstCount = ParseNumber("--first", texts.m_First, 0, CCapturedCall::kMostPrimitives);
		arguments.m_CloudOptions = {texts.m_SortBy, texts.m_SkipBad,
			app.count("--outlier") != 0 ? ParseNumber("--outlier", texts.m_Outlier, 1, kMaxOutlierDistance) : 0};
		arguments.m_Scene = Scene(app, texts, arguments.m_CloudOptions);
		arguments.m_CloudOptions.m_SortBy.clear(); // another file may not have the property
		CheckCaptureOptions(app, *arguments.m_Scene);
		if (arguments.m_Scene->m_Call != null)
		{
			arguments.m_Colour = app.count("--colour") != 0 ? *colour : EColour::Order;
			arguments.m_FrameCount = std::min(arguments.m_FrameCount, 1u); // it is one
			if (*colour == EColour::Error)
				throw CFailure("A captured draw call has no exact answer, and so no errors to show.");
		}
		arguments.m_Up = arguments.m_Scene->m_Up;
		if (up)
			arguments.m_Up = *up;
		if (!texts.m_Frames && !texts.m_Window)
			arguments.m_FrameCount = arguments.m_Scene->m_FrameCount;
		arguments.m_ParticleCount = arguments.m_Scene->m_ParticleCount;
		if (app.count("--particles") != 0)
			arguments.m_ParticleCount =
				ParseNumber("--particles", texts.m_Particles, 1, arguments.m_Scene->m_MaxParticleCount);
		return arguments;
	}

	// CLI11 ends some messages with a line of its own; a sentence has one line and one full stop.
	std::string FirstLine(std::string text)
	{
		text.erase(std::min(text.find('\n'), text.size()));
		while (!text.empty() && (text.back() == '.' || text.back() == ' '))
			text.pop_back();
		return text + "; --help lists the options.";
	}

	/// The sentence for what CLI11 refuses: an option without its value, or something that is no option.
	std::string Sentence(const CLI::ParseError &error)
	{
		const std::string message = error.what();
		if (dynamic_cast<const CLI::ArgumentMismatch *>(&error) != null)
			return message.substr(0, message.find(':')) + " needs a value.";
		return FirstLine(message);
	}
} // namespace

std::optional<SArguments> ParseArguments(int argc, const char *const *argv)
{
	CLI::App app(kAbout, "particle_viewer");
	STexts texts;
	Declare(app, texts);
	try
	{
		app.parse(argc, argv);
	}
	catch (const CLI::CallForHelp &)
	{
		std::fputs(app.help().c_str(), stdout);
		return std::nullopt;
	}
	catch (const CLI::ParseError &error)
	{
		throw CFailure(Sentence(error));
	}
	return Check(app, texts);
}
} // namespace Viewer
