// EGL on Mesa's surfaceless platform: no configuration and no surface, since the renderer draws to a framebuffer
// object.

#include "gl_context.h"

#include "failure.h"
#include <cstdlib>
#include <dlfcn.h>
#include <epoxy/egl.h>
#include <epoxy/gl.h>

namespace Viewer
{
namespace
{
	const char *const kHowToGetADriver =
		"; a software driver comes with the packages libegl-mesa0 and libgl1-mesa-dri.";

	// libepoxy ends the process when it finds no libEGL: look first.
	void RequireEgl()
	{
		void *const egl = dlopen("libEGL.so.1", RTLD_LAZY | RTLD_LOCAL);
		if (egl == nullptr)
			throw CFailure(std::string("There is no EGL library here") + kHowToGetADriver);
		dlclose(egl);
	}

	// The name without EXT belongs to EGL 1.5, which libepoxy cannot see before there is a display to ask.
	EGLDisplay OpenDisplay()
	{
		const char *const extensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
		if (extensions == nullptr || std::string(extensions).find("EGL_MESA_platform_surfaceless") == std::string::npos)
			throw CFailure(std::string("EGL has no driver that draws without a display") + kHowToGetADriver);
		const EGLDisplay display =
			eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
		if (display == EGL_NO_DISPLAY || !eglInitialize(display, nullptr, nullptr))
			throw CFailure(std::string("EGL finds no graphics driver") + kHowToGetADriver);
		return display;
	}

	EGLContext CreateContext(EGLDisplay display)
	{
		const EGLint attributes[] = {
			EGL_CONTEXT_MAJOR_VERSION,
			4,
			EGL_CONTEXT_MINOR_VERSION,
			5,
			EGL_CONTEXT_OPENGL_PROFILE_MASK,
			EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
			EGL_NONE,
		};
		if (!eglBindAPI(EGL_OPENGL_API))
			return EGL_NO_CONTEXT;
		return eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
	}
} // namespace

CSurfacelessContext::CSurfacelessContext()
{
	setenv("EGL_LOG_LEVEL", "fatal", 0); // a failure is told in one sentence, ours
	RequireEgl();
	m_Display = OpenDisplay();
	m_Context = CreateContext(m_Display);
	if (m_Context == EGL_NO_CONTEXT || !eglMakeCurrent(m_Display, EGL_NO_SURFACE, EGL_NO_SURFACE, m_Context))
	{
		eglTerminate(m_Display);
		throw CFailure(std::string("The graphics driver has no OpenGL 4.5 core context") + kHowToGetADriver);
	}
}

CSurfacelessContext::~CSurfacelessContext()
{
	eglMakeCurrent(m_Display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
	eglDestroyContext(m_Display, m_Context);
	eglTerminate(m_Display);
}

std::string CSurfacelessContext::Description() const
{
	const auto text = [](GLenum name) { return std::string(reinterpret_cast<const char *>(glGetString(name))); };
	return text(GL_RENDERER) + ", OpenGL " + text(GL_VERSION);
}
} // namespace Viewer
