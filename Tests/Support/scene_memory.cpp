// Lays scenes out in guarded memory and compares what a sort leaves there with the model's result.

#include "scene_memory.h"

#include "ge_mesh_sort_validation.h"

#include "diagnostics.h"
#include "vexmoor.h"
#include <algorithm>
#include <cstring>
#include <new>
#include <optional>

using namespace Vexmoor;
using namespace std::string_literals;

namespace Support
{
typedef TStridedMemoryView<const CFloat3, -1> CPositionView;
typedef TStridedMemoryView<const float, -1> CValueView;
typedef TStridedMemoryView<const u8, -1> CEnabledView;

static u32 BytesPerIndex(const Model::SScene &scene)
{
	return scene.m_IndexType == Model::EIndexType::U32 ? 4 : 2;
}

static u64 WorkingBufferSize(const Model::SScene &scene, u32 maxJobCount)
{
	if (maxJobCount != 0)
		return scene.m_Geometry == Model::EGeometry::PerPage
		           ? CTriangleSorter::GetJobsWorkingBufferSize_tri(scene.m_TriangleIndexCount, maxJobCount)
		           : CTriangleSorter::GetJobsWorkingBufferSize(scene.m_ParticleCount, maxJobCount);
	return scene.m_Geometry == Model::EGeometry::PerPage
	           ? CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(scene.m_TriangleIndexCount)
	           : CTriangleSorter::GetAutogenIndicesWorkingBufferSize(scene.m_ParticleCount);
}

// Scenes.

u32 FloatBits(float value)
{
	u32 bits;
	std::memcpy(&bits, &value, sizeof(bits));
	return bits;
}

Model::SScene OnePage(u32 particleCount, u32 width, Model::EGeometry geometry)
{
	Model::SScene scene;
	scene.m_SortType = Model::ESortType::ByValue;
	scene.m_Geometry = geometry;
	scene.m_VerticesPerParticle = 4;
	scene.m_VertexCount = particleCount * 4;
	scene.m_IndexCapacity = particleCount * width;
	for (u32 i = 0; i < width; ++i)
		scene.m_Pattern.push_back(i % 4);

	scene.m_ParticleCount = particleCount;
	scene.m_Pages.resize(1);
	scene.m_Pages[0].m_RenderedCount = particleCount;
	for (u32 i = 0; i < particleCount; ++i)
	{
		scene.m_Pages[0].m_Values.m_Elements.push_back(FloatBits(float(i)));
		scene.m_Pages[0].m_Positions.m_Elements.push_back({0, 0, FloatBits(float(i + 1))});
		if (geometry != Model::EGeometry::Constant)
			scene.m_IndexList.push_back(i * 4);
	}
	if (geometry == Model::EGeometry::IndexListAndQuadCenters)
		scene.m_QuadCenters.resize((particleCount + 1) * 16);
	return scene;
}

SSceneLayout WithoutWorkingBuffer()
{
	SSceneLayout layout;
	layout.m_SorterAllocates = true;
	return layout;
}

SSceneLayout WithCachedOutput()
{
	SSceneLayout layout;
	layout.m_OutputMemory = CTriangleSorter::OutputMemory_Cached;
	return layout;
}

// Layout.

CSceneMemory::CSceneMemory(const Model::SScene &scene, const SSceneLayout &layout)
	: m_Scene(scene)
	, m_Layout(layout)
	, m_PageCount(u32(scene.m_Pages.size()))
	, m_Nothing(0)
	, m_Output(std::size_t(scene.m_IndexCapacity) * BytesPerIndex(scene), scene.m_OutputAddressMod16, layout.m_Flush)
{
	if (!layout.m_SorterAllocates)
		m_WorkingBuffer = std::make_unique<CGuardedMemory>(
			std::size_t(WorkingBufferSize(scene, layout.m_MaxJobCount)), 0, layout.m_Flush);
	if (layout.m_MaxJobCount != 0)
		m_Jobs = std::make_unique<CJobRunner>(layout.m_MaxJobCount, layout.m_JobOrder);
	_AddPages();
	_AddGeometry();

	m_Sorter = new (_AddInput(sizeof(CTriangleSorter), 0)) CTriangleSorter;
	if (layout.m_OutputMemory)
		m_Sorter->Setup_OutputMemory(*layout.m_OutputMemory); // no later call changes it
	// What is kept where counts agree shows in one half of the scenes, and what is left where they do not in the other.
	const u32 lastCountsMore = m_Scene.m_ParticleCount % 2;
	_SetUpEarlierCall(1 - lastCountsMore);
	_SetUpEarlierCall(lastCountsMore);
	SetUpOutput(*m_Sorter);
	SetUpInput(*m_Sorter);
	SetUpGeometry(*m_Sorter);
}

CSceneMemory::~CSceneMemory()
{
	m_Sorter->~CTriangleSorter();
	for (u32 i = 0; m_PagePatterns != nullptr && i < m_PageCount; ++i)
		m_PagePatterns[i].~TArray();
}

unsigned char *CSceneMemory::_AddInput(std::size_t size, std::size_t addressMod16)
{
	m_Inputs.emplace_back(size, addressMod16, m_Layout.m_Flush);
	return m_Inputs.back().Data();
}

// Elements of a view: each copied to its place, the bytes between them left as they are, none behind the last.
template<typename _Element>
static void CopyElements(unsigned char *to, const std::vector<_Element> &elements, std::size_t stride)
{
	for (const _Element &element : elements)
	{
		std::memcpy(to, static_cast<const void *>(&element), sizeof(_Element));
		to += stride;
	}
}

template<typename _Element>
_Element *CSceneMemory::_AddInputArray(const std::vector<_Element> &elements, std::size_t stride)
{
	if (elements.empty())
		return m_Nothing.As<_Element>();
	unsigned char *const data = _AddInput((elements.size() - 1) * stride + sizeof(_Element), 0);
	CopyElements(data, elements, stride);
	return reinterpret_cast<_Element *>(data);
}

// A page of nothing has a view without memory behind it, or without even an address.
template<typename _View>
static _View EmptyView(void *address, u32 stride, u32 pageId)
{
	return pageId % 2 == 0 ? _View() : _View(reinterpret_cast<decltype(_View().Data())>(address), 0, stride);
}

void CSceneMemory::_AddPages()
{
	std::vector<CPositionView> positions;
	std::vector<CValueView> values;
	std::vector<CEnabledView> enableds;
	std::vector<u32> renderedCounts;
	const auto addView = [this](auto &views, const auto &elements, u32 stride, u32 addressMod16, u32 pageId)
	{
		typedef typename std::remove_reference_t<decltype(views)>::value_type CView;
		const u32 count = u32(elements.size());
		unsigned char *data = m_Nothing.Data();
		if (count == 0)
		{
			views.push_back(EmptyView<CView>(data, stride, pageId));
			return;
		}
		if (m_Scene.m_Pages[pageId].m_RenderedCount != 0)
		{
			data = _AddInput(std::size_t(count - 1) * stride + sizeof(elements[0]), addressMod16);
			CopyElements(data, stride == 0 ? std::vector(1, elements[0]) : elements, stride);
		}
		views.push_back(CView(reinterpret_cast<decltype(CView().Data())>(data), count, stride));
	};

	for (u32 i = 0; i < m_PageCount; ++i)
	{
		const Model::SPage &page = m_Scene.m_Pages[i];
		if (m_Scene.m_SortType == Model::ESortType::ByPosition)
			addView(
				positions, page.m_Positions.m_Elements, page.m_Positions.m_Stride, page.m_Positions.m_AddressMod16, i);
		else
			addView(values, page.m_Values.m_Elements, page.m_Values.m_Stride, page.m_Values.m_AddressMod16, i);
		addView(enableds, page.m_Enabled, 1, page.m_EnabledAddressMod16, i);
		renderedCounts.push_back(page.m_RenderedCount);
	}
	m_PositionPages = _AddInputArray(positions, m_Layout.m_PageViewStride);
	m_SortKeyPages = _AddInputArray(values, m_Layout.m_PageViewStride);
	m_EnabledPages = _AddInputArray(enableds, m_Layout.m_PageViewStride);
	m_RenderedCounts = _AddInputArray(renderedCounts, m_Layout.m_RenderedCountStride);
}

void CSceneMemory::_AddGeometry()
{
	if (m_Scene.m_Geometry == Model::EGeometry::PerPage)
	{
		std::vector<u32> vertexCounts;
		unsigned char *const patterns = _AddInput(m_PageCount * sizeof(CTriangleSorter::CIndexPattern), 0);
		m_PagePatterns = reinterpret_cast<CTriangleSorter::CIndexPattern *>(patterns);
		for (u32 i = 0; i < m_PageCount; ++i)
		{
			const std::vector<u32> &pattern = m_Scene.m_Pages[i].m_Pattern;
			new (m_PagePatterns + i)
				CTriangleSorter::CIndexPattern(TMemoryView<const u32>(pattern.data(), u32(pattern.size())));
			vertexCounts.push_back(m_Scene.m_Pages[i].m_VerticesPerParticle);
		}
		m_PageVertexCounts = _AddInputArray(vertexCounts);
		return;
	}

	if (!m_Scene.m_IndexList.empty())
	{
		unsigned char *const list = _AddInput(m_Scene.m_IndexList.size() * 4, m_Scene.m_IndexListAddressMod16);
		CopyElements(list, m_Scene.m_IndexList, 4);
		m_IndexList = reinterpret_cast<u32 *>(list);
	}
	m_QuadCenters = reinterpret_cast<CFloat4 *>(_AddInputArray(m_Scene.m_QuadCenters));
}

// Set-up and sort.

template<typename _Element>
static TMemoryView<_Element> ViewAt(const CGuardedMemory &memory, std::size_t count)
{
	return {memory.As<_Element>(), u32(count)};
}

// Hosts set one sorter up anew, frame after frame. What this one was told before, through every set-up call, is as
// large as the scene or larger, lies where any access faults, and has other values throughout.
void CSceneMemory::_SetUpEarlierCall(u32 countsMore) const
{
	const u32 indexCapacity = m_Scene.m_IndexCapacity + countsMore;
	m_Sorter->Setup_OutputIndexBuffer(ViewAt<u32>(m_Nothing, indexCapacity), m_Scene.m_VertexCount + 1);
	m_Sorter->Setup_OutputIndexBuffer(ViewAt<u16>(m_Nothing, indexCapacity), m_Scene.m_VertexCount + 1);

	const u32 pageCount = m_PageCount + countsMore;
	const u32 particleCount = m_Scene.m_ParticleCount + countsMore;
	const CFloat3 camera(-123.0f, 45.0f, 6.0f);
	const auto enableds = ViewAt<const CEnabledView>(m_Nothing, pageCount);
	const auto renderedCounts = ViewAt<const u32>(m_Nothing, pageCount);
	m_Sorter->Setup_InputPageCache(
		ViewAt<const CValueView>(m_Nothing, pageCount), enableds, renderedCounts, particleCount, camera);
	m_Sorter->Setup_InputPageCache(
		ViewAt<const CPositionView>(m_Nothing, pageCount), enableds, renderedCounts, particleCount, camera);

	std::vector<u32> otherEntries(m_Scene.m_Pattern.size() + countsMore, 0xABCDu);
	const TMemoryView<u32> pattern(otherEntries.data(), u32(otherEntries.size()));
	const auto indexList = ViewAt<const u32>(m_Nothing, m_Scene.m_IndexList.size() + countsMore);
	const auto quadCenters = ViewAt<const CFloat4>(m_Nothing, m_Scene.m_QuadCenters.size() + countsMore);
	const u32 verticesPerParticle = m_Scene.m_VerticesPerParticle + 1;
	m_Sorter->Setup_Geometry(ViewAt<const CTriangleSorter::CIndexPattern>(m_Nothing, pageCount),
		ViewAt<const u32>(m_Nothing, pageCount), m_Scene.m_TriangleIndexCount + 3 * countsMore);
	m_Sorter->Setup_Geometry(pattern, verticesPerParticle);
	m_Sorter->Setup_Geometry(pattern, indexList);
	m_Sorter->Setup_Geometry(pattern, indexList, quadCenters, verticesPerParticle);
}

void CSceneMemory::SetUpOutput(CTriangleSorter &sorter) const
{
	if (m_Scene.m_IndexType == Model::EIndexType::U32)
		sorter.Setup_OutputIndexBuffer({m_Output.As<u32>(), m_Scene.m_IndexCapacity}, m_Scene.m_VertexCount);
	else
		sorter.Setup_OutputIndexBuffer({m_Output.As<u16>(), m_Scene.m_IndexCapacity}, m_Scene.m_VertexCount);
}

void CSceneMemory::SetUpInput(CTriangleSorter &sorter) const
{
	const CTriangleSorter::CEnabledPages enableds(
		static_cast<const CEnabledView *>(m_EnabledPages), m_PageCount, m_Layout.m_PageViewStride);
	const CTriangleSorter::CRenderedCounts renderedCounts(
		m_RenderedCounts, m_PageCount, m_Layout.m_RenderedCountStride);
	CFloat3 camera;
	std::memcpy(static_cast<void *>(&camera), &m_Scene.m_Camera, sizeof(camera));

	if (m_Scene.m_SortType == Model::ESortType::ByPosition)
	{
		const CTriangleSorter::CPositionPages positions(
			static_cast<const CPositionView *>(m_PositionPages), m_PageCount, m_Layout.m_PageViewStride);
		sorter.Setup_InputPageCache(positions, enableds, renderedCounts, m_Scene.m_ParticleCount, camera);
		return;
	}
	const CTriangleSorter::CSortKeyPages sortKeys(
		static_cast<const CValueView *>(m_SortKeyPages), m_PageCount, m_Layout.m_PageViewStride);
	if (m_Scene.m_Geometry == Model::EGeometry::IndexListAndQuadCenters)
		sorter.Setup_InputPageCache(sortKeys, enableds, renderedCounts, m_Scene.m_ParticleCount, camera);
	else
		sorter.Setup_InputPageCache(sortKeys, enableds, renderedCounts, m_Scene.m_ParticleCount);
}

void CSceneMemory::SetUpGeometry(CTriangleSorter &sorter) const
{
	std::vector<u32> patternCopy = m_Scene.m_Pattern; // the sorter makes its own copy of this one
	const TMemoryView<u32> pattern(patternCopy.data(), u32(patternCopy.size()));
	const TMemoryView<const u32> indexList(m_IndexList, u32(m_Scene.m_IndexList.size()));
	switch (m_Scene.m_Geometry)
	{
	case Model::EGeometry::Constant:
		sorter.Setup_Geometry(pattern, m_Scene.m_VerticesPerParticle);
		break;
	case Model::EGeometry::IndexList:
		sorter.Setup_Geometry(pattern, indexList);
		break;
	case Model::EGeometry::IndexListAndQuadCenters:
		sorter.Setup_Geometry(pattern, indexList,
			TMemoryView<const CFloat4>(m_QuadCenters, u32(m_Scene.m_QuadCenters.size())),
			m_Scene.m_VerticesPerParticle);
		break;
	case Model::EGeometry::PerPage:
		sorter.Setup_Geometry(TMemoryView<const CTriangleSorter::CIndexPattern>(m_PagePatterns, m_PageCount),
			TMemoryView<const u32>(m_PageVertexCounts, m_PageCount), m_Scene.m_TriangleIndexCount);
		break;
	}
}

void CSceneMemory::Protect()
{
	for (CGuardedMemory &input : m_Inputs)
		input.Protect();
}

void CSceneMemory::Sort()
{
	Protect();
	if (m_Layout.m_IsThroughC)
		_SortThroughC();
	else if (m_Layout.m_IsChecked)
		_SortChecked();
	else if (m_Jobs != nullptr)
		_SortInJobs();
	else if (m_Scene.m_Geometry == Model::EGeometry::PerPage)
		m_Sorter->SortTriangles_AutogenIndices(WorkingBuffer());
	else
		m_Sorter->SortPoints_AutogenIndices(WorkingBuffer());
}

void CSceneMemory::_SortInJobs()
{
	const u64 size = m_WorkingBuffer != nullptr ? m_WorkingBuffer->Size() : 0;
	if (m_Scene.m_Geometry == Model::EGeometry::PerPage)
		m_Sorter->SortTriangles_AutogenIndices(WorkingBuffer(), size, m_Jobs->Jobs());
	else
		m_Sorter->SortPoints_AutogenIndices(WorkingBuffer(), size, m_Jobs->Jobs());
}

void CSceneMemory::_SortChecked()
{
	const auto collect = [](const SSortFinding &finding, void *userData)
	{
		CSceneMemory &self = *static_cast<CSceneMemory *>(userData);
		(finding.m_Kind == SortFinding_Violation ? self.m_Violations : self.m_Advice) += finding.m_Sentence + "\n"s;
	};
	const auto sort = m_Scene.m_Geometry == Model::EGeometry::PerPage ? &SortTrianglesChecked : &SortPointsChecked;
	const u64 size = m_WorkingBuffer != nullptr ? m_WorkingBuffer->Size() : 0;
	const SSortJobs jobs = m_Jobs != nullptr ? m_Jobs->Jobs() : SSortJobs();
	const u32 violationCount =
		sort(*m_Sorter, WorkingBuffer(), size, collect, this, m_Jobs != nullptr ? &jobs : nullptr);
	if (violationCount != std::count(m_Violations.begin(), m_Violations.end(), '\n'))
		m_Violations += std::to_string(violationCount) + " violations are counted\n";
}

// The scene as a call in C. What a call may leave out is left out in every other scene.
void CSceneMemory::_SortThroughC()
{
	const bool leavesOut = m_Scene.m_ParticleCount % 2 != 0;
	const bool byPosition = m_Scene.m_SortType == Model::ESortType::ByPosition;
	vexmoor_call call = {};
	call.struct_size = sizeof(call);
	call.index_size = leavesOut && BytesPerIndex(m_Scene) == 4 ? 0 : BytesPerIndex(m_Scene);
	call.indices = m_Output.Data();
	call.index_capacity = m_Scene.m_IndexCapacity;
	call.vertex_count = m_Scene.m_VertexCount;
	(byPosition ? call.positions : call.values) =
		static_cast<const vexmoor_view *>(byPosition ? m_PositionPages : m_SortKeyPages);
	call.enabled = static_cast<const vexmoor_view *>(m_EnabledPages);
	call.rendered_counts = m_RenderedCounts;
	call.page_count = m_PageCount;
	call.particle_count = leavesOut ? 0 : m_Scene.m_ParticleCount;
	std::memcpy(call.camera_position, &m_Scene.m_Camera, sizeof(call.camera_position));
	if (m_Scene.m_Geometry == Model::EGeometry::PerPage)
	{
		call.page_patterns = reinterpret_cast<const vexmoor_pattern *>(m_PagePatterns);
		call.page_vertex_counts = m_PageVertexCounts;
		call.triangle_index_count = m_Scene.m_TriangleIndexCount;
	}
	else
	{
		call.pattern = m_Scene.m_Pattern.data();
		call.pattern_count = u32(m_Scene.m_Pattern.size());
		call.vertices_per_particle = m_Scene.m_VerticesPerParticle;
	}
	if (m_Scene.m_Geometry == Model::EGeometry::IndexList ||
		m_Scene.m_Geometry == Model::EGeometry::IndexListAndQuadCenters)
	{
		const u32 none = 0;
		call.index_list = m_IndexList != nullptr ? m_IndexList : &none;
		call.index_list_count = u32(m_Scene.m_IndexList.size());
	}
	if (m_Scene.m_Geometry == Model::EGeometry::IndexListAndQuadCenters)
	{
		call.quad_centers = m_QuadCenters->Data();
		call.quad_center_count = u32(m_Scene.m_QuadCenters.size());
	}
	call.working_buffer = WorkingBuffer();
	call.working_buffer_size = m_WorkingBuffer != nullptr ? m_WorkingBuffer->Size() : 0;
	const SSortJobs hostJobs = m_Jobs != nullptr ? m_Jobs->Jobs() : SSortJobs();
	const vexmoor_jobs jobs = {sizeof(jobs), hostJobs.m_MaxJobCount, hostJobs.m_Run, hostJobs.m_UserData};
	call.jobs = m_Jobs != nullptr ? &jobs : nullptr;
	if (m_Layout.m_OutputMemory)
		call.output_memory = *m_Layout.m_OutputMemory;

	const auto collect = [](void *userData, vexmoor_finding_kind kind, const char *sentence)
	{
		CSceneMemory &self = *static_cast<CSceneMemory *>(userData);
		(kind == VEXMOOR_VIOLATION ? self.m_Violations : self.m_Advice) += sentence + "\n"s;
	};
	std::size_t size = 0;
	if (vexmoor_working_buffer_size(&call, &size) != VEXMOOR_OK ||
		size != WorkingBufferSize(m_Scene, m_Layout.m_MaxJobCount))
		m_Violations += "the working buffer has " + std::to_string(size) + " bytes\n";
	const bool sortsTriangles = m_Scene.m_Geometry == Model::EGeometry::PerPage;
	const vexmoor_result result = m_Layout.m_IsChecked ? vexmoor_sort_checked(&call, collect, this)
	                              : sortsTriangles     ? vexmoor_sort_triangles(&call)
	                                                   : vexmoor_sort_points(&call);
	if (result != VEXMOOR_OK)
		m_Violations += vexmoor_result_text(result) + "\n"s;
}

// Comparison.

template<typename _Index>
static testing::AssertionResult OutputHolds(const _Index *output, const std::vector<std::optional<u32>> &expected)
{
	_Index untouched;
	std::memset(&untouched, CGuardedMemory::kInitialByte, sizeof(untouched));
	for (std::size_t i = 0; i < expected.size(); ++i)
	{
		const u32 index = expected[i].value_or(untouched);
		if (output[i] != index)
			return testing::AssertionFailure() << "output " << i << " of " << expected.size() << " is " << output[i]
			                                   << ", not " << (expected[i] ? "" : "untouched: ") << index;
	}
	return testing::AssertionSuccess();
}

static testing::AssertionResult RecordsHold(
	const char *name, const SIndexAndDepth *records, const std::vector<Model::SRecord> &expected)
{
	for (std::size_t i = 0; i < expected.size(); ++i)
	{
		if (records[i].m_Depth != expected[i].m_Key || records[i].m_Index != expected[i].m_Index)
			return testing::AssertionFailure()
			       << name << ": record " << i << " of " << expected.size() << " is {" << records[i].m_Depth << ", "
			       << records[i].m_Index << "}, not {" << expected[i].m_Key << ", " << expected[i].m_Index << "}";
	}
	return testing::AssertionSuccess();
}

testing::AssertionResult CSceneMemory::_SurroundingsIntact() const
{
	if (!m_Output.SurroundingsIntact())
		return testing::AssertionFailure() << "bytes around the output have changed";
	if (m_WorkingBuffer != nullptr && !m_WorkingBuffer->SurroundingsIntact())
		return testing::AssertionFailure() << "bytes around the working buffer have changed";
	return testing::AssertionSuccess();
}

testing::AssertionResult CSceneMemory::Holds(const Model::SSortResult &result) const
{
	testing::AssertionResult holds = m_Scene.m_IndexType == Model::EIndexType::U32
	                                     ? OutputHolds(m_Output.As<u32>(), result.m_Output)
	                                     : OutputHolds(m_Output.As<u16>(), result.m_Output);
	if (holds && m_WorkingBuffer != nullptr && m_Jobs == nullptr)
	{
		const SIndexAndDepth *const records = m_WorkingBuffer->As<SIndexAndDepth>();
		const std::size_t paddedCount = (result.m_Sorted.size() + 1) / 2 * 2;
		holds = RecordsHold("sorted", records, result.m_Sorted);
		if (holds && m_Scene.m_Geometry != Model::EGeometry::PerPage)
			holds = RecordsHold("second array", records + paddedCount, result.m_Scratch);
	}
	return holds ? _SurroundingsIntact() : holds;
}

testing::AssertionResult CSceneMemory::OutputUntouched() const
{
	for (std::size_t i = 0; i < m_Output.Size(); ++i)
	{
		if (m_Output.Data()[i] != CGuardedMemory::kInitialByte)
			return testing::AssertionFailure() << "byte " << i << " of the output has changed";
	}
	return _SurroundingsIntact();
}

std::vector<u32> CSceneMemory::Output() const
{
	if (m_Scene.m_IndexType == Model::EIndexType::U32)
		return {m_Output.As<u32>(), m_Output.As<u32>() + m_Scene.m_IndexCapacity};
	return {m_Output.As<u16>(), m_Output.As<u16>() + m_Scene.m_IndexCapacity};
}

// Reports and warnings.

// A page that starts on an odd triangle says so when its records are expanded and when they are widened.
static std::vector<std::string> ExpectedTriangleReports(const Model::SScene &scene)
{
	std::vector<std::string> reports;
	u32 startPrim = 0;
	u32 startIndex = 0;
	for (const Model::SPage &page : scene.m_Pages)
	{
		if (startIndex + page.m_VerticesPerParticle > scene.m_VertexCount)
			break;
		const u32 affordable = (scene.m_VertexCount - startIndex) / page.m_VerticesPerParticle;
		const u32 particleCount = std::min(page.m_RenderedCount, affordable);
		if (particleCount != 0 && startPrim % 2 != 0)
		{
			reports.push_back("Mem::IsAligned<0x10>(it)");
			reports.push_back("Mem::IsAligned<0x10>(inoutList.Data())");
		}
		startPrim += particleCount * u32(page.m_Pattern.size()) / 3;
		startIndex += particleCount * page.m_VerticesPerParticle;
	}
	return reports;
}

// The interface for C returns before it sorts no particles.
static bool SortsNothing(const Model::SScene &scene, const SSceneLayout &layout)
{
	return layout.m_IsThroughC && scene.m_Geometry != Model::EGeometry::PerPage && scene.m_ParticleCount == 0;
}

std::vector<std::string> ExpectedReports(
	const Model::SScene &scene, const Model::SSortResult &result, const SSceneLayout &layout)
{
	if (SortsNothing(scene, layout))
		return {};
	if (scene.m_Geometry == Model::EGeometry::PerPage)
		return ExpectedTriangleReports(scene);
	if (result.m_ReadOffset >= scene.m_ParticleCount) // no record, or an even number of them and none to write
		return {"index < m_Count"};
	return {};
}

static std::string SiteKey(u32 line)
{
	return "[l." + std::to_string(line) + "] @ " + kSorterFile;
}

typedef std::vector<CLogUniqueCollection::SEntry> CEntries;

static void Touch(CEntries &entries, const std::string &key, const std::string &message)
{
	const auto known = std::find_if(entries.begin(), entries.end(),
		[&key](const CLogUniqueCollection::SEntry &entry) { return entry.m_Key == key; });
	if (known != entries.end())
		++known->m_TouchCount;
	else
		entries.push_back({key, message, 1});
}

static std::string Text(const CEntries &entries)
{
	std::string text;
	for (const CLogUniqueCollection::SEntry &entry : entries)
		text += "\n  " + std::to_string(entry.m_TouchCount) + " x " + entry.m_Key + " " + entry.m_Message;
	return text;
}

static testing::AssertionResult WarningsMatch(
	const Model::SWarnings &expectedWarnings, const CWarningRecorder &warnings, const CJobRunner *jobs)
{
	CEntries expected;
	for (const Model::SWarning &warning : expectedWarnings)
		Touch(expected, SiteKey(warning.m_Line), warning.m_Text);

	const CEntries recorded = warnings.Entries();
	u32 touches = 0;
	for (const CLogUniqueCollection::SEntry &entry : recorded)
		touches += entry.m_TouchCount;
	const u32 hazards = warnings.Hazards() + (jobs != nullptr ? jobs->HazardsOfThreads() : 0);
	if (touches != hazards)
		return testing::AssertionFailure() << touches << " warnings, " << hazards << " hazards";

	if (Text(recorded) != Text(expected))
		return testing::AssertionFailure() << "warnings:" << Text(recorded) << "\nnot:" << Text(expected);
	return testing::AssertionSuccess();
}

testing::AssertionResult SortsLikeTheModel(const Model::SScene &scene, const SSceneLayout &layout)
{
	const Model::SSortResult result =
		scene.m_Geometry == Model::EGeometry::PerPage ? Model::TriangleSort(scene) : Model::PointSort(scene);
	CSceneMemory memory(scene, layout);
	CReportRecorder reports;
	CWarningRecorder warnings;
	memory.Sort();

	const std::vector<std::string> expectedReports =
		VX_ASSERTIONS ? ExpectedReports(scene, result, layout) : std::vector<std::string>();
	if (reports.Texts() != expectedReports)
		return testing::AssertionFailure() << "reports: " << testing::PrintToString(reports.Texts())
		                                   << "\nnot: " << testing::PrintToString(expectedReports);
	if (!memory.Violations().empty())
		return testing::AssertionFailure() << "broken rules:\n" << memory.Violations();
	const bool isForetold = memory.Advice().find("report") != std::string::npos;
	if (layout.m_IsChecked && !SortsNothing(scene, layout) &&
		isForetold == ExpectedReports(scene, result, layout).empty())
		return testing::AssertionFailure()
		       << (isForetold ? "no report, but:\n" : "no advice tells of a report:\n") << memory.Advice();
	const testing::AssertionResult holds = memory.Holds(result);
	const Model::SWarnings none;
	const Model::SWarnings &expected = SortsNothing(scene, layout) ? none : result.m_Warnings;
	return holds ? WarningsMatch(expected, warnings, memory.Jobs()) : holds;
}
} // namespace Support
