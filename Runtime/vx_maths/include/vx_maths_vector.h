#pragma once

// Plain float vectors, tightly packed: 12 bytes for a position, 16 for a quad centre or a colour.

#include "vx_defs.h"

#include <limits>
#include <type_traits>

namespace Vexmoor
{
/// Infinity and its like, by type.
template<typename _Scalar>
struct TNumericTraits
{
	/// Beyond every finite value; not to be relied on under -ffast-math.
	static constexpr _Scalar kPositiveInfinity = std::numeric_limits<_Scalar>::infinity();
};

/// _Dimension scalars in the order x, y, z, w. Zero when default-constructed.
template<typename _Scalar, u32 _Dimension>
class VX_API_INLINE TVector
{
public:
	constexpr TVector() = default;
	///@{
	/// From one scalar per axis.
	template<u32 _D = _Dimension, typename = std::enable_if_t<_D == 3>>
	constexpr TVector(_Scalar x, _Scalar y, _Scalar z)
		: m_Axes{x, y, z}
	{
	}
	template<u32 _D = _Dimension, typename = std::enable_if_t<_D == 4>>
	constexpr TVector(_Scalar x, _Scalar y, _Scalar z, _Scalar w)
		: m_Axes{x, y, z, w}
	{
	}
	///@}

	///@{
	/// An axis; w in four dimensions alone.
	_Scalar &x() { return m_Axes[0]; }
	_Scalar &y() { return m_Axes[1]; }
	_Scalar &z() { return m_Axes[2]; }
	constexpr const _Scalar &x() const { return m_Axes[0]; }
	constexpr const _Scalar &y() const { return m_Axes[1]; }
	constexpr const _Scalar &z() const { return m_Axes[2]; }

	template<u32 _D = _Dimension, typename = std::enable_if_t<_D == 4>>
	_Scalar &w()
	{
		return m_Axes[3];
	}
	template<u32 _D = _Dimension, typename = std::enable_if_t<_D == 4>>
	constexpr const _Scalar &w() const
	{
		return m_Axes[3];
	}
	///@}

	///@{
	/// An axis by number, unchecked.
	_Scalar &operator[](u32 axis) { return m_Axes[axis]; }
	constexpr const _Scalar &operator[](u32 axis) const { return m_Axes[axis]; }
	///@}

	const _Scalar *Data() const { return m_Axes; } ///< Address of x, which the others follow.

private:
	_Scalar m_Axes[_Dimension] = {};
};

typedef TVector<float, 3> CFloat3; ///< A position.
typedef TVector<float, 4> CFloat4; ///< A quad centre, whose fourth float is not read, or a colour.

static_assert(sizeof(CFloat3) == 12 && sizeof(CFloat4) == 16, "vectors are tightly packed");
} // namespace Vexmoor
