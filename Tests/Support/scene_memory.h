#pragma once

// A scene of the reference model, laid out as a host would have it: every view in memory of its own that ends where
// memory ends, at the stride and address that the scene names. All that a sort reads is read-only while it runs, the
// sorter included, and pages without rendered particles lie where any access faults.

#include "ge_mesh_triangle_sorter.h"

#include "guarded_memory.h"
#include "job_runner.h"
#include "reference_model.h"
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Support
{
/// What a scene leaves open about its memory.
struct SSceneLayout
{
	CGuardedMemory::EFlush m_Flush = CGuardedMemory::FlushEnd;
	Vexmoor::u32 m_RenderedCountStride = 4;
	Vexmoor::u32 m_PageViewStride = 16; // of the arrays of views, one element per page
	bool m_SorterAllocates = false;     // no working buffer is given
	std::optional<Vexmoor::CTriangleSorter::EOutputMemory> m_OutputMemory; // none: what a new sorter takes it for
	bool m_IsChecked = false;                                              // the checked sort sorts
	bool m_IsThroughC = false;      // the interface for C sorts: the strides above stay as they are
	Vexmoor::u32 m_MaxJobCount = 0; // none: the sort without jobs
	EJobOrder m_JobOrder = JobOrder_Natural;
};

class CSceneMemory
{
public:
	explicit CSceneMemory(const Model::SScene &scene, const SSceneLayout &layout = SSceneLayout());
	~CSceneMemory();
	CSceneMemory(const CSceneMemory &) = delete;
	CSceneMemory &operator=(const CSceneMemory &) = delete;

	/// Set up with the whole scene, after earlier calls that leave nothing behind. It may be set up anew until Protect.
	Vexmoor::CTriangleSorter &Sorter() { return *m_Sorter; }
	/// Exactly as large as the sorter asks for; null where the sorter allocates.
	void *WorkingBuffer() const { return m_WorkingBuffer != nullptr ? m_WorkingBuffer->Data() : nullptr; }

	/// The three groups of set-up calls, for a sorter that shall lack one of them.
	void SetUpOutput(Vexmoor::CTriangleSorter &sorter) const;
	void SetUpInput(Vexmoor::CTriangleSorter &sorter) const;
	void SetUpGeometry(Vexmoor::CTriangleSorter &sorter) const;

	/// From here on a write into the inputs or into the sorter faults.
	void Protect();
	/// Protects, then sorts points or triangles, by the scene's geometry.
	void Sort();
	/// Null for a sort without jobs.
	const CJobRunner *Jobs() const { return m_Jobs.get(); }
	/// What a checked sort has found, a sentence to a line.
	const std::string &Violations() const { return m_Violations; }
	const std::string &Advice() const { return m_Advice; }

	/// The output and, unless the sorter allocates, the records hold the result, and nothing around them has changed.
	testing::AssertionResult Holds(const Model::SSortResult &result) const;
	/// The output and what surrounds it are as they were before a sort.
	testing::AssertionResult OutputUntouched() const;
	/// Every index of the output, written or not.
	std::vector<Vexmoor::u32> Output() const;

private:
	unsigned char *_AddInput(std::size_t size, std::size_t addressMod16);
	template<typename _Element>
	_Element *_AddInputArray(const std::vector<_Element> &elements, std::size_t stride = sizeof(_Element));
	void _AddPages();
	void _AddGeometry();
	void _SetUpEarlierCall(Vexmoor::u32 countsMore) const;
	testing::AssertionResult _SurroundingsIntact() const;
	void _SortInJobs();
	void _SortChecked();
	void _SortThroughC();

	const Model::SScene m_Scene;
	const SSceneLayout m_Layout;
	const Vexmoor::u32 m_PageCount;

	std::unique_ptr<CJobRunner> m_Jobs;
	std::vector<CGuardedMemory> m_Inputs;
	CGuardedMemory m_Nothing; // of no size: its address is the guard page's
	const void *m_PositionPages = nullptr;
	const void *m_SortKeyPages = nullptr;
	const void *m_EnabledPages = nullptr;
	const Vexmoor::u32 *m_RenderedCounts = nullptr;
	Vexmoor::CTriangleSorter::CIndexPattern *m_PagePatterns = nullptr;
	const Vexmoor::u32 *m_PageVertexCounts = nullptr;
	const Vexmoor::u32 *m_IndexList = nullptr;
	const Vexmoor::CFloat4 *m_QuadCenters = nullptr;

	std::string m_Violations, m_Advice;
	CGuardedMemory m_Output;
	std::unique_ptr<CGuardedMemory> m_WorkingBuffer;
	Vexmoor::CTriangleSorter *m_Sorter; // one of the inputs
};

/// What a sort of the scene reports where assertions are compiled in.
std::vector<std::string> ExpectedReports(
	const Model::SScene &scene, const Model::SSortResult &result, const SSceneLayout &layout);

/// Lays the scene out, sorts it and compares all there is with the model: the output, the records, the memory around
/// them, the reports, and the warnings with their sites and counts.
testing::AssertionResult SortsLikeTheModel(const Model::SScene &scene, const SSceneLayout &layout = SSceneLayout());

/// For scenes whose sorter has to allocate.
SSceneLayout WithoutWorkingBuffer();
/// For outputs that are said to be ordinary memory.
SSceneLayout WithCachedOutput();

/// A scene to start from. Particle k of one page has the value k and lies k + 1 away from the camera: by value the
/// order is 0, 1, 2, ..., by position the reverse. The pattern's entries are 0, 1, 2, 3, 0, 1, ...
Model::SScene OnePage(
	Vexmoor::u32 particleCount, Vexmoor::u32 width = 6, Model::EGeometry geometry = Model::EGeometry::Constant);

Vexmoor::u32 FloatBits(float value);

constexpr Model::EIndexType kIndexTypes[] = {Model::EIndexType::U16, Model::EIndexType::U32};
constexpr Model::ESortType kSortTypes[] = {Model::ESortType::ByPosition, Model::ESortType::ByValue};
constexpr Model::EGeometry kPointGeometries[] = {
	Model::EGeometry::Constant, Model::EGeometry::IndexList, Model::EGeometry::IndexListAndQuadCenters};

/// Where reports and warnings of the sorter say they come from.
constexpr const char *kSorterFile = "../../Runtime/vx_geometrics/src/ge_mesh/mesh_triangle_sorter.cpp";
} // namespace Support
