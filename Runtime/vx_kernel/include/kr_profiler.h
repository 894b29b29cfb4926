#pragma once

// Profiling: named, coloured scopes that a host may record, and a count of performance hazards per thread.

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include <atomic>

namespace Vexmoor
{
namespace Profiler
{
	/// Counts how often a thread took slow paths. Read the count before and after a sort to see what the sort added.
	class VX_API CHazards
	{
	public:
		/// The counter of the calling thread.
		static CHazards &CurrentThreadHazards();

		u32 m_PerformanceHazards = 0; ///< Warnings issued, first ones and repeated ones.
	};

	/// The description of a scope: one constant per site, complete before anything runs.
	struct SNodeDescriptor
	{
		/// Kinds of scopes, for hosts that group them. The sorter's have none.
		enum EFlags : u32
		{
			None = 0,                   ///< Work of any kind.
			Idle = 0x10000000u,         ///< Waiting.
			Update = 0x20000000u,       ///< An update of the scene.
			Frame = 0x40000000u,        ///< A whole frame.
			Mask_User = 0xFFFFu,        ///< Bits for the host's own use.
			Mask_Reserved = 0x0FFF0000u ///< Bits that nobody sets.
		};

		CFloat4 m_Color;               ///< Red, green, blue, alpha from 0 to 1.
		u32 m_ColorRGBA8;              ///< Red in the lowest byte.
		u32 m_ColorBGRA8;              ///< Blue in the lowest byte.
		const char *m_Name;            ///< Not copied.
		const char *m_FileAndFunction; ///< Not copied.
		u32 m_Flags;                   ///< EFlags, combined.

		/// A colour with its alpha.
		constexpr SNodeDescriptor(const char *name, const char *fileAndFunction, const CFloat4 &color, u32 flags)
			: m_Color(color)
			, m_ColorRGBA8(_Pack(color.x(), color.y(), color.z(), color.w()))
			, m_ColorBGRA8(_Pack(color.z(), color.y(), color.x(), color.w()))
			, m_Name(name)
			, m_FileAndFunction(fileAndFunction)
			, m_Flags(flags)
		{
		}
		/// An opaque colour.
		constexpr SNodeDescriptor(const char *name, const char *fileAndFunction, const CFloat3 &color, u32 flags)
			: SNodeDescriptor(name, fileAndFunction, CFloat4(color.x(), color.y(), color.z(), 1.0f), flags)
		{
		}

		/// An opaque colour made from a name: the same name gives the same colour. Channels stay above a quarter, so
		/// that dark text and black backgrounds both stand out.
		VX_WRAPS static constexpr CFloat4 AutogenColor(const char *name)
		{
			u32 hash = 2166136261u; // FNV-1a, whose low bytes spread short names well
			for (const char *c = name; *c != '\0'; ++c)
				hash = (hash ^ u8(*c)) * 16777619u;
			return CFloat4(_Channel(hash), _Channel(hash >> 8), _Channel(hash >> 16), 1.0f);
		}

	private:
		// Exact, so that a colour made at compile time and one made by a host's fast arithmetic are one.
		static constexpr float _Channel(u32 hash) { return 0.25f + float((hash & 0xFF) * 3) * (1.0f / 1024.0f); }

		static constexpr u32 _ToByte(float channel)
		{
			const float clamped = channel < 0.0f ? 0.0f : (channel > 1.0f ? 1.0f : channel);
			return u32(clamped * 255.0f + 0.5f); // NOLINT(bugprone-incorrect-roundings): just below a half goes up
		}

		// first takes the lowest byte, then green, third and alpha.
		static constexpr u32 _Pack(float first, float green, float third, float alpha)
		{
			return _ToByte(first) | _ToByte(green) << 8 | _ToByte(third) << 16 | _ToByte(alpha) << 24;
		}
	};

	/// Hands scopes to the host's handler, or drops them.
	class VX_API CProfiler
	{
	public:
		/// Called on the thread of the scope, when it is entered and when it is left; scopes of a thread nest.
		typedef void (*CbScope)(const SNodeDescriptor &node, bool entering, void *userData);

		/// Replaces the handler; null brings back the default, which records nothing. Call it at start-up: a scope
		/// that is open meanwhile may be entered without being left, or left without having been entered.
		void SetScopeHandler(CbScope handler, void *userData);

		///@{
		/// Tells the handler, if there is one. Every scope entered is left on the same thread, the last one first.
		void Enter(const SNodeDescriptor &node) { _Notify(node, true); }
		void Leave(const SNodeDescriptor &node) { _Notify(node, false); }
		///@}

	private:
		void _Notify(const SNodeDescriptor &node, bool entering)
		{
			const CbScope handler = m_Handler.load(std::memory_order_acquire);
			if (VX_UNLIKELY(handler != null))
				handler(node, entering, m_UserData.load(std::memory_order_relaxed));
		}

		std::atomic<CbScope> m_Handler = null;
		std::atomic<void *> m_UserData = null;
	};

	/// The process-wide profiler.
	VX_API extern CProfiler s_MainEngineProfiler;
	/// Its address, never null.
	VX_API CProfiler *MainEngineProfiler();

	/// A scope: entered where it is constructed, left where it is destroyed.
	class CScopedNode
	{
	public:
		/// If enabled is false or profiler is null, there is no scope. The descriptor is not copied.
		CScopedNode(CProfiler *profiler, const SNodeDescriptor &nodeDescriptor, bool enabled = true)
			: m_Profiler(enabled ? profiler : null)
			, m_NodeDescriptor(&nodeDescriptor)
		{
			if (m_Profiler != null)
				m_Profiler->Enter(*m_NodeDescriptor);
		}
		~CScopedNode()
		{
			if (m_Profiler != null)
				m_Profiler->Leave(*m_NodeDescriptor);
		}
		CScopedNode(const CScopedNode &) = delete;
		CScopedNode &operator=(const CScopedNode &) = delete;

	private:
		CProfiler *m_Profiler;
		const SNodeDescriptor *m_NodeDescriptor;
	};
} // namespace Profiler
} // namespace Vexmoor

/// Opens a scope that lasts to the end of the enclosing block. The colour is a CFloat3 or a CFloat4; of constants, it
/// costs nothing at run time.
#define VX_PROFILE_SCOPE_COLOR(_name, ...)                                         \
	static const ::Vexmoor::Profiler::SNodeDescriptor VX_JOIN(vxNode, __LINE__)(   \
		_name, __FILE__, __VA_ARGS__, ::Vexmoor::Profiler::SNodeDescriptor::None); \
	const ::Vexmoor::Profiler::CScopedNode VX_JOIN(vxScope, __LINE__)(             \
		&::Vexmoor::Profiler::s_MainEngineProfiler, VX_JOIN(vxNode, __LINE__), true)

/// The same, with a colour made from the name.
#define VX_PROFILE_SCOPE(_name) VX_PROFILE_SCOPE_COLOR(_name, ::Vexmoor::Profiler::SNodeDescriptor::AutogenColor(_name))
