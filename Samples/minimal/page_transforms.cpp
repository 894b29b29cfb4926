// Pages with transforms of their own: emitters that simulate in local space, each moved, turned and scaled into the
// world. No particle is transformed. Instead, the camera is taken into the space of each page. Moving and turning keep
// distances, and a uniform scale multiplies them. So the values 0 - scale^2 * squared local distance give one order
// over all pages.

#include "ge_mesh_pages.h"

#include "minimal.h"
#include <cmath>

using namespace Vexmoor;

struct STransform
{
	CFloat3 m_Offset;
	float m_Angle; // around y
	float m_Scale; // the same along all axes
};

static CFloat3 ToWorld(const STransform &transform, const CFloat3 &p)
{
	const float s = std::sin(transform.m_Angle) * transform.m_Scale;
	const float c = std::cos(transform.m_Angle) * transform.m_Scale;
	const CFloat3 &offset = transform.m_Offset;
	return CFloat3(
		c * p.x() + s * p.z() + offset.x(), transform.m_Scale * p.y() + offset.y(), c * p.z() - s * p.x() + offset.z());
}

static CFloat3 ToLocal(const STransform &transform, const CFloat3 &world)
{
	const float s = std::sin(transform.m_Angle) / transform.m_Scale;
	const float c = std::cos(transform.m_Angle) / transform.m_Scale;
	const float x = world.x() - transform.m_Offset.x();
	const float y = world.y() - transform.m_Offset.y();
	const float z = world.z() - transform.m_Offset.z();
	return CFloat3(c * x - s * z, y / transform.m_Scale, s * x + c * z);
}

int main()
{
	constexpr u32 kPageCount = 3;
	constexpr u32 kPerPage = 40;
	constexpr u32 kCount = kPageCount * kPerPage;
	const STransform transforms[kPageCount] = {
		{CFloat3(0,  0, 0),  0,     1   },
		{CFloat3(5,  2, -3), 1.2f,  2   },
		{CFloat3(-4, 0, 6),  -2.5f, 0.5f},
	};
	const CFloat3 camera(3, 4, -25);

	std::vector<CFloat3> worlds; // only to look at the result
	std::vector<float> values;
	for (u32 page = 0; page < kPageCount; ++page)
	{
		const CFloat3 localCamera = ToLocal(transforms[page], camera);
		const float squaredScale = transforms[page].m_Scale * transforms[page].m_Scale;
		for (const CFloat3 &local : Minimal::ScatteredPoints(kPerPage, page))
		{
			worlds.push_back(ToWorld(transforms[page], local));
			values.push_back(0.0f - squaredScale * Minimal::SquaredDistance(local, localCamera));
		}
	}
	CSortKeyPage pages[kPageCount];
	for (u32 page = 0; page < kPageCount; ++page)
		pages[page] = ViewOf(&values[page * kPerPage], kPerPage);

	std::vector<u32> indices(kCount * 6);
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(indices), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages));
	sorter.Setup_Geometry(ViewOf(quad), 4);

	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());

	const std::vector<u32> drawn = Minimal::DrawnParticles(indices, 6, 4);
	u32 pageChanges = 0;
	for (u32 i = 1; i < kCount; ++i)
		pageChanges += drawn[i] / kPerPage != drawn[i - 1] / kPerPage ? 1 : 0;
	std::printf(
		"%u particles of %u spaces in one order, which changes spaces %u times.\n", kCount, kPageCount, pageChanges);
	Minimal::Require(
		Minimal::IsFarthestFirst(drawn, worlds, camera), "the particles are not drawn by their distance in the world.");
	Minimal::Require(pageChanges > kPageCount, "the pages are drawn one after the other.");
	return 0;
}
