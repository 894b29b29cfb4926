#pragma once

// Random damage to a sound call: views get smaller, lose their address or overlap themselves, and numbers change. No
// view claims memory that is not there, so what a check lets pass has to sort within its memory.
// _Draw draws: Below(bound), Chance(percent), Next().

#include "sort_call.h"

namespace Support
{
template<typename _Type, typename _Draw>
void Damage(Vexmoor::TStridedMemoryView<_Type, -1> &view, _Draw &random)
{
	if (random.Chance(50) && view.Count() != 0)
		view = view.Slice(0, random.Below(view.Count()));
	else if (random.Chance(50))
		view = {Vexmoor::null, view.Count(), view.Stride()};
	else
		view = {view.Data(), view.Count(), random.Below(view.Stride() + 1)};
}

template<typename _Type, typename _Draw>
void Damage(Vexmoor::TMemoryView<_Type> &view, _Draw &random)
{
	view = random.Chance(80) ? view.Slice(0, random.Below(view.Count() + 1))
	                         : Vexmoor::TMemoryView<_Type>(Vexmoor::null, view.Count());
}

template<typename _Draw>
void Damage(u32 &number, _Draw &random)
{
	number = random.Chance(70) ? number + random.Below(9) - 4 : random.Next() >> random.Below(32);
}

// One of the call's parts, changed.
template<typename _Draw>
void Damage(CCall &call, _Draw &random)
{
	const u32 page = random.Below(CCall::kPageCount);
	switch (random.Below(20))
	{
	case 0:
		return Damage(call.m_VertexCount, random);
	case 1:
		return Damage(call.m_ParticleCount, random);
	case 2:
		return Damage(call.m_VerticesPerParticle, random);
	case 3:
		return Damage(call.m_IndexCount, random);
	case 4:
		return Damage(call.m_Counts[page], random);
	case 5:
		return Damage(call.m_VertexCounts[page], random);
	case 6:
		return Damage(call.m_Entries[random.Below(CCall::kParticleCount)], random);
	case 7:
		return Damage(call.m_Pattern[random.Below(6)], random);
	case 8:
		return Damage(call.m_Positions[page], random);
	case 9:
		return Damage(call.m_Values[page], random);
	case 10:
		return Damage(call.m_Enableds[page], random);
	case 11:
		return Damage(call.m_PositionPages, random);
	case 12:
		return Damage(call.m_ValuePages, random);
	case 13:
		return Damage(call.m_EnabledPages, random);
	case 14:
		return Damage(call.m_RenderedCounts, random);
	case 15:
		return Damage(call.m_IndexList, random);
	case 16:
		return Damage(call.m_QuadCenters, random);
	case 17:
		return Damage(call.m_PatternPages, random);
	case 18:
		return Damage(call.m_VertexCountPages, random);
	default:
		call.m_EnabledBytes[random.Below(5)] = u8(random.Below(2));
		call.m_OutputCount = random.Below(call.m_OutputCount + 1);
		call.m_WorkingBufferSize -= random.Below(2);
		return;
	}
}
} // namespace Support
