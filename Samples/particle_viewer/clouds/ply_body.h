#pragma once

// The body of a PLY file: rows of text or rows of bytes, read one after the other through the same interface.

#include "ply_header.h"
#include <functional>
#include <memory>

namespace Viewer
{
class IPlyBody
{
public:
	virtual ~IPlyBody() = default;

	/// Elements follow each other as in the header; of each, every row is read, or all are skipped.
	virtual void BeginElement(const SPlyElement &element) = 0;
	virtual void SkipRows() = 0;
	/// Reads the next row; gives its values of these properties, which are numbers.
	virtual void ReadRow(const std::vector<u32> &properties, double *values) = 0;
	/// Where the last row is: "line 12" or "byte 345".
	virtual std::string Where() const = 0;
	/// Refuses what follows the last element.
	virtual void EndFile() = 0;
};

/// One row a line.
std::unique_ptr<IPlyBody> OpenPlyText(std::string_view file, const SPlyHeader &header);
/// Rows of bytes, in either byte order.
std::unique_ptr<IPlyBody> OpenPlyBinary(std::string_view file, const SPlyHeader &header);

struct SPlyRow
{
	u64 m_Number;           ///< Among the rows of its element, from 0.
	const double *m_Values; ///< Of the properties asked for, in that order.
	const IPlyBody &m_Body; ///< Which says where the row is.
};

/// What is wanted of an element: some of its numbers, row after row.
struct SPlyRequest
{
	const SPlyElement *m_Element;
	std::vector<u32> m_Properties;
	std::function<void(const SPlyRow &row)> m_OnRow;
};

/// Reads the body from end to end, and gives the requests their rows in the order of the file. A file that was cut
/// short, or has more than its header promises, is refused: rows given until then are part of a damaged file.
void ReadPlyBody(std::string_view file, const SPlyHeader &header, const std::vector<SPlyRequest> &requests);
} // namespace Viewer
