#pragma once

// A current OpenGL 4.5 core context that needs neither display nor window system.

#include <string>

namespace Viewer
{
/// Makes the context current on the constructing thread and keeps it so; a CFailure where there is no driver for it.
class CSurfacelessContext
{
public:
	CSurfacelessContext();
	~CSurfacelessContext();
	CSurfacelessContext(const CSurfacelessContext &) = delete;
	CSurfacelessContext &operator=(const CSurfacelessContext &) = delete;

	/// Renderer and version, as the driver names them.
	std::string Description() const;

private:
	void *m_Display = nullptr;
	void *m_Context = nullptr;
};
} // namespace Viewer
