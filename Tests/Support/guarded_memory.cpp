#include "guarded_memory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
	#define TEST_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
	#if __has_feature(address_sanitizer)
		#define TEST_ADDRESS_SANITIZER 1
	#endif
#endif

#ifdef TEST_ADDRESS_SANITIZER
	#include <sanitizer/asan_interface.h>
#else
	#define ASAN_POISON_MEMORY_REGION(_address, _size) (static_cast<void>(_address), static_cast<void>(_size))
	#define ASAN_UNPOISON_MEMORY_REGION(_address, _size) (static_cast<void>(_address), static_cast<void>(_size))
#endif

namespace Support
{
static std::size_t PageSize()
{
	static const std::size_t s_PageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
	return s_PageSize;
}

CGuardedMemory::CGuardedMemory(std::size_t size, std::size_t alignmentOffset, EFlush flush)
	: m_Size(size)
{
	const std::size_t page = PageSize();
	m_PagesSize = (size + 16 + page - 1) / page * page;
	void *const mapping =
		mmap(nullptr, m_PagesSize + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
	if (mapping == MAP_FAILED)
	{
		std::perror("guarded memory");
		std::abort();
	}
	m_Pages = static_cast<unsigned char *>(mapping) + page;
	if (mprotect(m_Pages, m_PagesSize, PROT_READ | PROT_WRITE) != 0)
	{
		std::perror("guarded memory");
		std::abort();
	}

	if (flush == FlushStart)
		m_Data = m_Pages + alignmentOffset;
	else
		m_Data = m_Pages + m_PagesSize - size - ((16 - size % 16) + (16 - alignmentOffset % 16)) % 16;

	std::memset(m_Pages, kSurroundingByte, m_PagesSize);
	std::memset(m_Data, kInitialByte, size);
	ASAN_POISON_MEMORY_REGION(m_Pages, m_PagesSize);
	ASAN_UNPOISON_MEMORY_REGION(m_Data, m_Size);
}

CGuardedMemory::~CGuardedMemory()
{
	if (m_Pages == nullptr)
		return;
	ASAN_UNPOISON_MEMORY_REGION(m_Pages, m_PagesSize);
	munmap(m_Pages - PageSize(), m_PagesSize + 2 * PageSize());
}

CGuardedMemory::CGuardedMemory(CGuardedMemory &&other) noexcept
	: m_Pages(std::exchange(other.m_Pages, nullptr))
	, m_PagesSize(other.m_PagesSize)
	, m_Data(other.m_Data)
	, m_Size(other.m_Size)
{
}

CGuardedMemory &CGuardedMemory::operator=(CGuardedMemory &&other) noexcept
{
	std::swap(m_Pages, other.m_Pages);
	std::swap(m_PagesSize, other.m_PagesSize);
	std::swap(m_Data, other.m_Data);
	std::swap(m_Size, other.m_Size);
	return *this;
}

bool CGuardedMemory::SurroundingsIntact() const
{
	ASAN_UNPOISON_MEMORY_REGION(m_Pages, m_PagesSize);
	bool intact = true;
	for (const unsigned char *p = m_Pages; p < m_Data; ++p)
		intact = intact && *p == kSurroundingByte;
	for (const unsigned char *p = m_Data + m_Size; p < m_Pages + m_PagesSize; ++p)
		intact = intact && *p == kSurroundingByte;
	ASAN_POISON_MEMORY_REGION(m_Pages, static_cast<std::size_t>(m_Data - m_Pages));
	ASAN_POISON_MEMORY_REGION(m_Data + m_Size, static_cast<std::size_t>(m_Pages + m_PagesSize - m_Data) - m_Size);
	return intact;
}

void CGuardedMemory::Protect()
{
	mprotect(m_Pages, m_PagesSize, PROT_READ);
}
} // namespace Support
