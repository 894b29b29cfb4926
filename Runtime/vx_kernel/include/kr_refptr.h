#pragma once

// Objects that count references to themselves, and are deleted with the last one. The counts are atomic; the objects
// are not.

#include "vx_assert.h"
#include "vx_defs.h"

#include <atomic>

namespace Vexmoor
{
/// Base of objects that live as long as somebody refers to them. A new object has no reference yet.
class VX_API CRefCountedObject
{
public:
	CRefCountedObject() = default;
	CRefCountedObject(const CRefCountedObject &) = delete;
	CRefCountedObject &operator=(const CRefCountedObject &) = delete;

	/// Takes a reference.
	void AddStrongRef() { m_StrongRefCount.fetch_add(1, std::memory_order_relaxed); }

	/// Drops a reference, and the object with its last one. Dropping more than were taken is reported.
	VX_WRAPS void ReleaseStrongRef()
	{
		const u32 nrc = m_StrongRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
		VX_ASSERT_MESSAGE(s32(nrc) >= 0, "/!\\ strong refcount underflow /!\\");
		if (nrc == 0)
			_DeleteObject(this);
	}

protected:
	virtual ~CRefCountedObject() = default;

	/// Ends an object that nobody refers to any more.
	static void _DeleteObject(CRefCountedObject *object) { delete object; }

private:
	std::atomic<u32> m_StrongRefCount = 0;
};

/// Holds one reference to an object, or none.
template<typename _Type>
class TRefPtr
{
public:
	TRefPtr() = default;
	/// Takes a reference, unless the object is null.
	TRefPtr(_Type *object)
		: m_Object(object)
	{
		if (m_Object != null)
			m_Object->AddStrongRef();
	}
	/// Takes a reference of its own.
	TRefPtr(const TRefPtr &other)
		: TRefPtr(other.m_Object)
	{
	}
	~TRefPtr()
	{
		if (m_Object != null)
			m_Object->ReleaseStrongRef();
	}
	/// Takes the other's reference, then drops the one held.
	TRefPtr &operator=(const TRefPtr &other) // NOLINT(bugprone-unhandled-self-assignment): the copy handles it
	{
		TRefPtr copy(other); // first, so that assigning an object's last reference to itself keeps it
		_Type *const object = m_Object;
		m_Object = copy.m_Object;
		copy.m_Object = object;
		return *this;
	}

	///@{
	/// Does what a pointer does; it is null if no reference is held.
	_Type *Get() const { return m_Object; }
	_Type *operator->() const { return m_Object; }
	bool operator==(std::nullptr_t) const { return m_Object == null; }
	bool operator!=(std::nullptr_t) const { return m_Object != null; }
	///@}

private:
	_Type *m_Object = null;
};
} // namespace Vexmoor
