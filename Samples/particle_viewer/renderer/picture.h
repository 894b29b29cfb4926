#pragma once

// Pictures on the CPU: read back from the renderer, compared channel by channel, put side by side, written as PNG.

#include "vx_defs.h"

#include "colour.h"
#include <string>
#include <vector>

namespace Viewer
{
using namespace Vexmoor;

/// Red, green, blue, 8 bits each, rows from the top down.
struct SPicture
{
	u32 m_Width = 0;
	u32 m_Height = 0;
	std::vector<u8> m_Rgb;
};

/// How far two pictures of one size are apart, over all channels of all pixels, in steps of 1/255.
struct SDifference
{
	double m_Mean = 0.0;
	u32 m_Largest = 0;
};

SDifference Compare(const SPicture &a, const SPicture &b);

/// The largest difference of a pixel's channels as a colour of the ramp; black where there is none.
SPicture DifferenceMap(const SPicture &a, const SPicture &b);

/// A picture and what stands above it.
struct SLabelled
{
	const SPicture *m_Picture;
	std::string m_Label;
};

/// Pictures of one height in a row, each with the legend of its colours.
SPicture SideBySide(const std::vector<SLabelled> &panels, const SLegend &legend);

/// A picture with a line at a column, and above it what is on both sides of the line.
SPicture WithDivider(const SPicture &picture, u32 column, const std::string &left, const std::string &right);

struct SNamedPicture
{
	std::string m_FileName;
	const SPicture *m_Picture;
};

/// The folder that pictures go to. Made if need be, and proved writable, before any work is done; what it made goes
/// again unless the pictures were written.
class COutputFolder
{
public:
	explicit COutputFolder(const std::string &path);
	~COutputFolder();
	COutputFolder(const COutputFolder &) = delete;
	COutputFolder &operator=(const COutputFolder &) = delete;

	/// All of them or none: files get their names when all are complete.
	void Write(const std::vector<SNamedPicture> &pictures);

private:
	void RemoveMade();

	std::string m_Path;
	std::vector<std::string> m_Made; // folders that were made here, the innermost first
	bool m_Written = false;
};
} // namespace Viewer
