// Views made of arrays, containers and members: where they lie, how many elements they have, and what does not compile.

#include "vx_defs.h"
#include "vx_maths_vector.h"

#include "kr_memoryviews.h"
#include "kr_views.h"

#include "diagnostics.h"
#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>
#include <vector>
#if __cplusplus >= 202002L
	#include <span>
#endif

using namespace Vexmoor;
using namespace Support;

namespace
{
struct SHostVector
{
	float m_X, m_Y, m_Z, m_W;
};

struct SLife
{
	u32 m_Age;
	bool m_IsAlive;
};

struct SParticle
{
	u32 m_Id;
	CFloat3 m_Position;
	SHostVector m_Velocity;
	float m_Colour[3];
	SLife m_Life;
};

struct SSpark : SParticle
{
	u32 m_Trail;
};

// What a host's own container looks like: elements far too many to be there are counted all the same.
template<typename _Type>
class CHostContainer
{
public:
	explicit CHostContainer(u64 count)
		: m_Count(count)
	{
	}
	_Type *data() { return &m_First; }
	const _Type *data() const { return &m_First; }
	u64 size() const { return m_Count; }

private:
	_Type m_First = {};
	u64 m_Count;
};

template<typename _Range, typename = void>
struct THasView : std::false_type
{
};
template<typename _Range>
struct THasView<_Range, std::void_t<decltype(ViewOf(std::declval<_Range>()))>> : std::true_type
{
};

template<typename _Range, typename = void>
struct THasMemberView : std::false_type
{
};
template<typename _Range>
struct THasMemberView<_Range, std::void_t<decltype(ViewOf(std::declval<_Range>(), &SParticle::m_Position))>>
	: std::true_type
{
};

template<typename _Range, typename = void>
struct THasOtherView : std::false_type
{
};
template<typename _Range>
struct THasOtherView<_Range, std::void_t<decltype(ViewAs<CFloat3>(std::declval<_Range>()))>> : std::true_type
{
};

template<typename _Type>
void ExpectView(const TMemoryView<_Type> &view, const void *data, u32 count)
{
	EXPECT_EQ(view.Data(), data);
	EXPECT_EQ(view.Count(), count);
}

template<typename _Type>
void ExpectView(const TStridedMemoryView<_Type> &view, const void *data, u32 count, u32 stride)
{
	EXPECT_EQ(view.Data(), data);
	EXPECT_EQ(view.Count(), count);
	EXPECT_EQ(view.Stride(), stride);
}
} // namespace

// A view of one element points at it.
TEST(MemoryView, OfATemporary_DoesNotCompile)
{
	enum ECount : u32
	{
		Count_Three = 3
	};
	typedef TStridedMemoryView<const float> CPage;
	EXPECT_TRUE((std::is_constructible_v<TMemoryView<const u32>, const u32 &>));
	EXPECT_TRUE((std::is_constructible_v<TMemoryView<const u32>, u32 &>));
	EXPECT_FALSE((std::is_constructible_v<TMemoryView<const u32>, u32>));
	EXPECT_FALSE((std::is_constructible_v<TMemoryView<const u32>, const u32>));
	EXPECT_FALSE((std::is_constructible_v<TMemoryView<const u32>, int &>)) << "its u32 would be a temporary";
	EXPECT_FALSE((std::is_constructible_v<TMemoryView<const u32>, ECount &>)) << "its u32 would be a temporary";
	EXPECT_FALSE((std::is_constructible_v<TMemoryView<const CFloat3>, CFloat3>));
	EXPECT_TRUE((std::is_constructible_v<TStridedMemoryView<const u32>, const u32 &>));
	EXPECT_TRUE((std::is_constructible_v<TStridedMemoryView<const u32>, u32 &>));
	EXPECT_FALSE((std::is_constructible_v<TStridedMemoryView<const u32>, u32>));
	EXPECT_FALSE((std::is_constructible_v<TStridedMemoryView<const u32>, u64 &>)) << "its u32 would be a temporary";
	EXPECT_TRUE((std::is_constructible_v<TStridedMemoryView<const CPage>, const CPage &>));
	EXPECT_FALSE((std::is_constructible_v<TStridedMemoryView<const CPage>, CPage>));
}

// A view that is a temporary itself is as good as any.
TEST(MemoryView, OfATemporaryView_Compiles)
{
	typedef TStridedMemoryView<const float> CPage;
	EXPECT_TRUE((std::is_convertible_v<TMemoryView<float>, CPage>));
	EXPECT_TRUE((std::is_convertible_v<TMemoryView<const float>, CPage>));
	EXPECT_TRUE((std::is_convertible_v<TStridedMemoryView<float>, CPage>));
	EXPECT_TRUE((std::is_convertible_v<CPage, CPage>));
	EXPECT_TRUE((std::is_convertible_v<TMemoryView<CPage>, TStridedMemoryView<const CPage>>));
	EXPECT_TRUE((std::is_convertible_v<TStridedMemoryView<CPage>, TStridedMemoryView<const CPage>>));
}

TEST(ViewOf, ArraysAndContainers_AreViewedWhole)
{
	CExpectReports noReports;
	u32 array[3] = {};
	std::vector<u32> vector(5);
	std::array<u32, 7> standardArray = {};
	std::string text = "twelve bytes";
	CHostContainer<u32> host(9);
	ExpectView(ViewOf(array), array, 3);
	ExpectView(ViewOf(vector), vector.data(), 5);
	ExpectView(ViewOf(standardArray), standardArray.data(), 7);
	ExpectView(ViewOf(text), text.data(), 12);
	ExpectView(ViewOf(host), host.data(), 9);
	ExpectView(ViewOf(array, 2), array, 2);
	ExpectView(ViewOf(vector.data() + 1, vector.size() - 1), vector.data() + 1, 4);
}

TEST(ViewOf, ConstElements_GiveAViewOfConst)
{
	static_assert(std::is_same_v<decltype(ViewOf(std::declval<std::vector<u32> &>())), TMemoryView<u32>>);
	static_assert(std::is_same_v<decltype(ViewOf(std::declval<const std::vector<u32> &>())), TMemoryView<const u32>>);
	static_assert(std::is_same_v<decltype(ViewOf(std::declval<u32(&)[3]>())), TMemoryView<u32>>);
	static_assert(std::is_same_v<decltype(ViewOf(std::declval<const u32(&)[3]>())), TMemoryView<const u32>>);
}

TEST(ViewOf, ATemporaryContainer_DoesNotCompile)
{
	EXPECT_TRUE((THasView<std::vector<u32> &>::value));
	EXPECT_FALSE((THasView<std::vector<u32>>::value));
	EXPECT_TRUE((THasView<const std::vector<u32> &>::value));
	EXPECT_FALSE((THasView<const std::vector<u32>>::value));
	EXPECT_TRUE((THasView<std::array<u32, 3> &>::value));
	EXPECT_FALSE((THasView<std::array<u32, 3>>::value));
	EXPECT_TRUE((THasView<u32(&)[3]>::value));
	EXPECT_FALSE((THasView<u32(&&)[3]>::value));
	EXPECT_TRUE((THasView<const u32(&)[3]>::value));
	EXPECT_FALSE((THasView<const u32(&&)[3]>::value));
	EXPECT_TRUE((THasView<CHostContainer<u32> &>::value));
	EXPECT_FALSE((THasView<CHostContainer<u32>>::value));
	EXPECT_FALSE((THasView<std::vector<bool> &>::value)) << "its elements have no addresses";
	EXPECT_FALSE((THasView<u32 &>::value)) << "a number is no range";
	typedef std::vector<SParticle> CParticles;
	EXPECT_TRUE((THasMemberView<CParticles &>::value));
	EXPECT_FALSE((THasMemberView<CParticles>::value));
	typedef std::vector<SHostVector> CVectors;
	EXPECT_TRUE((THasOtherView<CVectors &>::value));
	EXPECT_FALSE((THasOtherView<CVectors>::value));
}

TEST(ViewOf, AView_StaysWhatItIs)
{
	CExpectReports noReports;
	u32 elements[6] = {};
	ExpectView(ViewOf(TMemoryView<u32>(elements, 6)), elements, 6);
	ExpectView(ViewOf(TStridedMemoryView<u32>(elements, 3, 8)), elements, 3, 8);
#if __cplusplus >= 202002L
	ExpectView(ViewOf(std::span(elements)), elements, 6);
	ExpectView(ViewOf(std::span<const u32>(elements).subspan(2)), elements + 2, 4);
	const std::span<u32> named(elements);
	static_assert(std::is_same_v<decltype(ViewOf(named)), TMemoryView<u32>>, "its elements are not const");
	ExpectView(ViewOf(named), elements, 6);
#endif
}

TEST(ViewOf, MoreThan32BitsCount_AreReportedAndWrap)
{
	CExpectReports reports{"count <= 0xFFFFFFFFu"};
	u32 element = 0;
	EXPECT_EQ(ViewOf(&element, 0xFFFFFFFFu).Count(), 0xFFFFFFFFu);
	CHostContainer<u8> host(0x100000001u);
	EXPECT_EQ(ViewOf(host).Count(), 1u);
}

TEST(ViewOf, AMember_IsViewedInEachStructure)
{
	CExpectReports noReports;
	std::vector<SParticle> particles(4);
	for (u32 i = 0; i < 4; ++i)
		particles[i].m_Position = CFloat3(float(i), 0, 0);
	const TStridedMemoryView<CFloat3> positions = ViewOf(particles, &SParticle::m_Position);
	ExpectView(positions, &particles[0].m_Position, 4, sizeof(SParticle));
	for (u32 i = 0; i < 4; ++i)
		EXPECT_EQ(positions[i].x(), float(i));

	SSpark sparks[3] = {};
	ExpectView(ViewOf(sparks, &SSpark::m_Position), &sparks[0].m_Position, 3, sizeof(SSpark)); // of a base class
	const std::array<SParticle, 2> constant = {};
	const TStridedMemoryView<const CFloat3> constantPositions = ViewOf(constant, &SParticle::m_Position);
	ExpectView(constantPositions, &constant[0].m_Position, 2, sizeof(SParticle));
}

TEST(ViewOf, AMemberOfAMember_IsAViewOfAView)
{
	CExpectReports noReports;
	std::vector<SParticle> particles(4);
	const TStridedMemoryView<u32> ages = ViewOf(ViewOf(particles, &SParticle::m_Life), &SLife::m_Age);
	ExpectView(ages, &particles[0].m_Life.m_Age, 4, sizeof(SParticle));
	const TStridedMemoryView<SParticle> everyOther(particles.data(), 2, 2 * sizeof(SParticle));
	ExpectView(ViewOf(everyOther, &SParticle::m_Id), &particles[0].m_Id, 2, 2 * sizeof(SParticle));
}

TEST(ViewOf, AMemberOfNothing_IsAnEmptyView)
{
	CExpectReports noReports;
	const std::vector<SParticle> none;
	EXPECT_TRUE(ViewOf(none, &SParticle::m_Position).Empty());
	EXPECT_EQ(ViewOf(TMemoryView<SParticle>(null, 3), &SParticle::m_Position).Data(), nullptr);
}

TEST(ViewAs, HostsTypes_KeepAddressCountAndStride)
{
	CExpectReports noReports;
	std::vector<SHostVector> vectors(5, SHostVector{1, 2, 3, 4});
	const TStridedMemoryView<const CFloat3> positions = ViewAs<CFloat3>(vectors);
	ExpectView(positions, vectors.data(), 5, sizeof(SHostVector));

	bool areAlive[6] = {};
	const TStridedMemoryView<const u8> enableds = ViewAs<u8>(areAlive);
	ExpectView(enableds, areAlive, 6, 1);
	EXPECT_TRUE(enableds.Contiguous());
}

TEST(ViewAs, AMember_IsReadAsTheOtherType)
{
	CExpectReports noReports;
	const std::vector<SParticle> particles(3);
	ExpectView(ViewAs<CFloat3>(particles, &SParticle::m_Velocity), &particles[0].m_Velocity, 3, sizeof(SParticle));
	ExpectView(ViewAs<CFloat3>(particles, &SParticle::m_Colour), &particles[0].m_Colour, 3, sizeof(SParticle));
	ExpectView(ViewAs<float>(particles, &SParticle::m_Position), &particles[0].m_Position, 3, sizeof(SParticle));
}
