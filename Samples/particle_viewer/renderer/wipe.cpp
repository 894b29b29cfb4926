#include "wipe.h"

#include "exact_order.h"
#include <algorithm>

namespace Viewer
{
namespace
{
	constexpr const char *kNames[] = {"none", "unsorted", "frozen", "16-bit", "error"}; // in the order of EWipe
	constexpr u32 kKindCount = 5;
	constexpr u32 kFewKeyBits = 16;
} // namespace

const char *WipeName(EWipe wipe)
{
	return kNames[u32(wipe)];
}

std::optional<EWipe> FindWipe(const std::string &name)
{
	for (u32 kind = 0; kind < kKindCount; ++kind)
		if (name == kNames[kind])
			return EWipe(kind);
	return std::nullopt;
}

EWipe NextWipe(EWipe wipe)
{
	return EWipe((u32(wipe) + 1) % kKindCount);
}

SWipeLabels WipeLabels(EWipe wipe, const std::string &orderLabel)
{
	switch (wipe)
	{
	case EWipe::Unsorted:
		return {"unsorted", orderLabel};
	case EWipe::Frozen:
		return {"sorted for another camera", "sorted for this one"};
	case EWipe::KeyBits:
		return {"keys of 32 bits", "keys of 16 bits"};
	case EWipe::Error:
		return {orderLabel, "how far off, black is exact"};
	default:
		return {};
	}
}

u32 DividerColumn(const SWipe &wipe, u32 width)
{
	return u32(std::clamp(wipe.m_Share, 0.0f, 1.0f) * float(width) + 0.5f);
}

void CWipeDrawer::DrawOther(
	EWipe wipe, EOrder order, const STrial &trial, const SCamera &frozenCamera, std::vector<u32> *indices)
{
	const auto drawSorted = [&](const STrial &other)
	{
		const SDrawn drawn = m_Drawer.DrawSorted(order, other);
		if (indices != null)
			*indices = m_Drawer.Renderer().ReadIndices(drawn);
	};
	STrial other = trial;
	switch (wipe)
	{
	case EWipe::Unsorted:
		m_Drawer.DrawIndices(CExactOrder(m_Drawer.Frame()).StorageIndices());
		break;
	case EWipe::Frozen:
		other.m_SortCamera = &frozenCamera;
		drawSorted(other);
		break;
	case EWipe::KeyBits:
		other.m_KeyBits = kFewKeyBits;
		drawSorted(other);
		break;
	case EWipe::Error:
		m_Drawer.DrawIndices(CExactOrder(m_Drawer.Frame()).SortedIndices());
		m_Exact = m_Drawer.Renderer().ReadPicture();
		return;
	default:
		return;
	}
	m_Drawer.Renderer().KeepPicture();
}

void CWipeDrawer::Join(const SWipe &wipe)
{
	CRenderer &renderer = m_Drawer.Renderer();
	if (wipe.m_Kind == EWipe::None)
		return;
	if (wipe.m_Kind == EWipe::Error)
		renderer.KeepPicture(DifferenceMap(renderer.ReadPicture(), m_Exact));
	const bool keptIsLeft = wipe.m_Kind == EWipe::Unsorted || wipe.m_Kind == EWipe::Frozen;
	const u32 divider = DividerColumn(wipe, renderer.Width());
	renderer.ShowKept(keptIsLeft ? 0 : divider, keptIsLeft ? divider : renderer.Width());
}
} // namespace Viewer
