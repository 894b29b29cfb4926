// The profiler service: descriptors' colours, the thread's hazard counter, and the one profiler that hands scopes on.

#include "kr_profiler.h"

namespace Vexmoor
{
namespace Profiler
{
	CHazards &CHazards::CurrentThreadHazards()
	{
		static thread_local CHazards s_Hazards;
		return s_Hazards;
	}

	static u32 ToByte(float channel)
	{
		const float clamped = channel < 0.0f ? 0.0f : (channel > 1.0f ? 1.0f : channel);
		return u32(clamped * 255.0f + 0.5f);
	}

	// first takes the lowest byte, then green, third and alpha.
	static u32 Pack(float first, float green, float third, float alpha)
	{
		return ToByte(first) | ToByte(green) << 8 | ToByte(third) << 16 | ToByte(alpha) << 24;
	}

	SNodeDescriptor::SNodeDescriptor(const char *name, const char *fileAndFunction, const CFloat3 &color, u32 flags)
		: SNodeDescriptor(name, fileAndFunction, CFloat4(color.x(), color.y(), color.z(), 1.0f), flags)
	{
	}

	SNodeDescriptor::SNodeDescriptor(const char *name, const char *fileAndFunction, const CFloat4 &color, u32 flags)
		: m_Color(color)
		, m_ColorRGBA8(Pack(color.x(), color.y(), color.z(), color.w()))
		, m_ColorBGRA8(Pack(color.z(), color.y(), color.x(), color.w()))
		, m_Name(name)
		, m_FileAndFunction(fileAndFunction)
		, m_Flags(flags)
	{
	}

	CFloat4 SNodeDescriptor::AutogenColor(const char *name)
	{
		u32 hash = 2166136261u; // FNV-1a, whose low bytes spread short names well
		for (const char *c = name; *c != '\0'; ++c)
			hash = (hash ^ u8(*c)) * 16777619u;

		// Channels stay above a quarter, so that dark text and black backgrounds both stand out.
		const auto channel = [hash](u32 shift) { return 0.25f + 0.75f * float((hash >> shift) & 0xFF) / 255.0f; };
		return CFloat4(channel(0), channel(8), channel(16), 1.0f);
	}

	void CProfiler::SetScopeHandler(CbScope handler, void *userData)
	{
		m_UserData.store(userData, std::memory_order_relaxed);
		m_Handler.store(handler, std::memory_order_release);
	}

	CProfiler *MainEngineProfiler()
	{
		static CProfiler s_Profiler;
		return &s_Profiler;
	}
} // namespace Profiler
} // namespace Vexmoor
