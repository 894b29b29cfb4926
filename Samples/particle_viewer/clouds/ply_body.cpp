#include "ply_body.h"

namespace Viewer
{
namespace
{
	const SPlyRequest *FindRequest(const std::vector<SPlyRequest> &requests, const SPlyElement &element)
	{
		for (const SPlyRequest &request : requests)
			if (request.m_Element == &element)
				return &request;
		return null;
	}

	void ReadRows(IPlyBody &body, const SPlyRequest &request)
	{
		std::vector<double> values(request.m_Properties.size());
		for (u64 row = 0; row < request.m_Element->m_Count; ++row)
		{
			body.ReadRow(request.m_Properties, values.data());
			request.m_OnRow({row, values.data(), body});
		}
	}
} // namespace

void ReadPlyBody(std::string_view file, const SPlyHeader &header, const std::vector<SPlyRequest> &requests)
{
	const std::unique_ptr<IPlyBody> body =
		header.m_Format == EPlyFormat::Ascii ? OpenPlyText(file, header) : OpenPlyBinary(file, header);
	for (const SPlyElement &element : header.m_Elements)
	{
		body->BeginElement(element);
		const SPlyRequest *const request = FindRequest(requests, element);
		if (request == null)
			body->SkipRows();
		else
			ReadRows(*body, *request);
	}
	body->EndFile();
}
} // namespace Viewer
