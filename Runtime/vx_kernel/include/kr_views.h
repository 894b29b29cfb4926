#pragma once

// Views of a caller's arrays and containers, without a count, a stride or a cast to get wrong: ViewOf says where
// elements lie, ViewOf with a member where that member lies in each structure, and ViewAs reads a host's own type as
// one of ours. A range is an array, or whatever has data() and size(): std::vector, std::array, std::span, a container
// of the host's. A view owns nothing, so a container that is a temporary does not compile.

#include "vx_assert.h"
#include "vx_defs.h"

#include "kr_memoryviews.h"

#include <cstddef>
#include <type_traits>
#include <utility>

namespace Vexmoor
{
namespace Views
{
	/// What data() of a range points at.
	template<typename _Range>
	using TElement = std::remove_pointer_t<decltype(std::declval<_Range &>().data())>;

	/// True for a range with data() and size().
	template<typename _Range, typename = void>
	struct TIsRange : std::false_type
	{
	};
	template<typename _Range>
	struct TIsRange<_Range, std::void_t<TElement<_Range>, decltype(u64(std::declval<_Range &>().size()))>>
		: std::true_type
	{
	};

	/// True for a range that is a view of elements which live elsewhere, such as std::span. It is told by its elements:
	/// they are as const in a const range as in any other. A container's elements become const with the container.
	template<typename _Range>
	constexpr bool kIsView = std::is_same_v<TElement<std::remove_cv_t<_Range>>, TElement<const _Range>>;

	/// True for a range whose elements are there when the statement is over.
	template<typename _Range>
	constexpr bool OutlivesItsStatement()
	{
		if constexpr (!TIsRange<std::remove_reference_t<_Range>>::value)
			return false;
		else
			return std::is_lvalue_reference_v<_Range> || kIsView<std::remove_reference_t<_Range>>;
	}

	/// Elements are counted in 32 bits. A larger count is reported, and taken modulo 2^32.
	inline u32 CountIn32Bits(u64 count)
	{
		VX_ASSERT(count <= 0xFFFFFFFFu);
		return u32(count);
	}
} // namespace Views

/// The count elements from data on, such as those of mapped memory. A count of 2^32 or more is reported, and taken
/// modulo 2^32.
template<typename _Type>
TMemoryView<_Type> ViewOf(_Type *data, u64 count)
{
	return TMemoryView<_Type>(data, Views::CountIn32Bits(count));
}

/// All elements of an array.
template<typename _Type, std::size_t _Count>
TMemoryView<_Type> ViewOf(_Type (&array)[_Count])
{
	return ViewOf(array, _Count);
}

/// All elements of a range, valid for as long as its data() is: until a vector grows, for one. 2^32 elements or more
/// are reported, and counted modulo 2^32.
template<typename _Range, std::enable_if_t<Views::OutlivesItsStatement<_Range &&>(), int> = 0>
TMemoryView<Views::TElement<std::remove_reference_t<_Range>>> ViewOf(_Range &&range)
{
	return ViewOf(range.data(), u64(range.size()));
}

///@{
/// A view as it is, so that what takes a range takes a view as well.
template<typename _Type>
TMemoryView<_Type> ViewOf(const TMemoryView<_Type> &view)
{
	return view;
}
template<typename _Type>
TStridedMemoryView<_Type> ViewOf(const TStridedMemoryView<_Type> &view)
{
	return view;
}
///@}

///@{
/// The elements of a temporary are gone when the statement is over. Give the container a name.
template<typename _Range,
	std::enable_if_t<Views::TIsRange<std::remove_reference_t<_Range>>::value &&
						 !Views::OutlivesItsStatement<_Range &&>(),
		int> = 0>
void ViewOf(_Range &&) = delete;
template<typename _Type, std::size_t _Count>
void ViewOf(_Type (&&)[_Count]) = delete;
///@}

namespace Views
{
	/// The member of each structure. A view without address has no first structure to look into.
	template<typename _Structure, typename _Class, typename _Member>
	auto OfMember(const TStridedMemoryView<_Structure> &structures, _Member _Class::*member)
	{
		typedef std::remove_reference_t<decltype(std::declval<_Structure &>().*member)> TType;
		return structures.Data() == null
		           ? TStridedMemoryView<TType>()
		           : TStridedMemoryView<TType>(&(structures.Data()->*member), structures.Count(), structures.Stride());
	}

	/// The elements read as another type.
	template<typename _To, typename _From>
	TStridedMemoryView<const _To> As(const TStridedMemoryView<_From> &elements)
	{
		static_assert(sizeof(_To) <= sizeof(_From), "an element has all bytes of what it is read as");
		static_assert(alignof(_From) >= alignof(_To), "an element lies where what it is read as may lie");
		static_assert(std::is_trivially_copyable_v<_From> && std::is_trivially_copyable_v<_To>, "both are plain bytes");
		return TStridedMemoryView<const _To>(
			reinterpret_cast<const _To *>(elements.Data()), elements.Count(), elements.Stride());
	}

	///@{
	/// The same view as one with a stride, if it had none.
	template<typename _Type>
	TStridedMemoryView<_Type> Strided(const TMemoryView<_Type> &view)
	{
		return view;
	}
	template<typename _Type>
	TStridedMemoryView<_Type> Strided(const TStridedMemoryView<_Type> &view)
	{
		return view;
	}
	///@}
} // namespace Views

/// One member of each structure of a range: ViewOf(particles, &SParticle::m_Position) are the positions of particles. A
/// view is a range too, so that a member of a member is a ViewOf of a ViewOf.
template<typename _Range, typename _Class, typename _Member>
auto ViewOf(_Range &&range, _Member _Class::*member)
	-> decltype(Views::OfMember(Views::Strided(ViewOf(std::forward<_Range>(range))), member))
{
	return Views::OfMember(Views::Strided(ViewOf(std::forward<_Range>(range))), member);
}

///@{
/// The elements of a range, or one member of each, read as another type that begins with the same bytes:
/// ViewAs<CFloat3>(particles, &SParticle::m_Position), where the position is a vector of the host's with x, y and z,
/// and whatever behind them, or ViewAs<u8>(alive) of an array of bool. Only sizes and alignments are compared.
template<typename _To, typename _Range>
auto ViewAs(_Range &&range) -> decltype(Views::As<_To>(Views::Strided(ViewOf(std::forward<_Range>(range)))))
{
	return Views::As<_To>(Views::Strided(ViewOf(std::forward<_Range>(range))));
}
template<typename _To, typename _Range, typename _Class, typename _Member>
auto ViewAs(_Range &&range, _Member _Class::*member)
	-> decltype(Views::As<_To>(ViewOf(std::forward<_Range>(range), member)))
{
	return Views::As<_To>(ViewOf(std::forward<_Range>(range), member));
}
///@}
} // namespace Vexmoor
