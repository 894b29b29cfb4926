// One hash of everything that the library writes for a few hundred generated scenes and calls: record arrays and index
// buffers of both sorts, and of each static function. It is the same for every compiler, flag and platform, so the hash
// stands recorded beside this file. Whether the bits are the right ones is for the tests against the model to say.
//
//   same_bits                      prints the hash
//   same_bits expected_hash.txt    compares it as well
//   same_bits --each               prints what it is after every case: two outputs part where two builds do

#include "ge_mesh_triangle_sorter.h"

#include "kr_cpu.h"
#include "kr_log_unique.h"
#include "kr_sort.h"

#include "random_scene.h"
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace Vexmoor;
using Model::CRandom;
using Model::SScene;
using Model::SSceneOptions;

namespace
{
// FNV-1a, 64 bits.
class CHash
{
public:
	void Add(const void *data, std::size_t size)
	{
		for (std::size_t i = 0; i < size; ++i)
			m_Value = (m_Value ^ static_cast<const u8 *>(data)[i]) * 0x00000100000001B3u;
	}
	std::uint64_t Value() const { return m_Value; }

private:
	std::uint64_t m_Value = 0xCBF29CE484222325u;
};

// What one case lays out: blocks at a given address modulo 16, of a byte that shows where nothing was written.
class CMemory
{
public:
	void *Add(std::size_t size, std::size_t addressMod16 = 0)
	{
		m_Blocks.emplace_back(new u8[size + 32]);
		u8 *const block = m_Blocks.back().get();
		std::memset(block, 0xCD, size + 32);
		return block + (16 - reinterpret_cast<std::uintptr_t>(block) % 16) % 16 + addressMod16;
	}

	// Packed elements, spread out at a stride; a stride of 0 lays out the first one alone.
	void *AddElements(
		const void *elements, std::size_t size, std::size_t count, std::size_t stride, std::size_t address)
	{
		if (stride == 0 && count > 1)
			count = 1;
		u8 *const block = static_cast<u8 *>(Add(count == 0 ? 0 : (count - 1) * stride + size, address));
		for (std::size_t i = 0; i < count; ++i)
			std::memcpy(block + i * stride, static_cast<const u8 *>(elements) + i * size, size);
		return block;
	}

	template<typename _To, typename _From>
	_To *AddArray(const std::vector<_From> &elements, std::size_t address = 0)
	{
		static_assert(sizeof(_To) == sizeof(_From), "the same bytes");
		return static_cast<_To *>(AddElements(elements.data(), sizeof(_From), elements.size(), sizeof(_From), address));
	}

private:
	std::vector<std::unique_ptr<u8[]>> m_Blocks;
};
} // namespace

static CFloat3 Float3FromBits(const Model::SFloat3 &bits)
{
	CFloat3 value;
	std::memcpy(static_cast<void *>(&value), &bits, sizeof(value));
	return value;
}

template<typename _Type>
static TMemoryView<const _Type> ConstView(const _Type *data, std::size_t count)
{
	return TMemoryView<const _Type>(data, u32(count));
}

// Views of a page.

typedef TStridedMemoryView<const CFloat3, -1> CPositionView;
typedef TStridedMemoryView<const float, -1> CValueView;
typedef TStridedMemoryView<const u8, -1> CEnabledView;

static CPositionView AddPositions(CMemory &memory, const Model::SPositions &positions)
{
	const std::size_t count = positions.m_Elements.size();
	const void *const data = memory.AddElements(
		positions.m_Elements.data(), sizeof(CFloat3), count, positions.m_Stride, positions.m_AddressMod16);
	return CPositionView(static_cast<const CFloat3 *>(data), u32(count), positions.m_Stride);
}

static CValueView AddValues(CMemory &memory, const Model::SValues &values)
{
	const std::size_t count = values.m_Elements.size();
	const void *const data =
		memory.AddElements(values.m_Elements.data(), sizeof(float), count, values.m_Stride, values.m_AddressMod16);
	return CValueView(static_cast<const float *>(data), u32(count), values.m_Stride);
}

static CEnabledView AddEnabled(CMemory &memory, const Model::SPage &page)
{
	if (page.m_Enabled.empty())
		return CEnabledView();
	const u8 *const data = memory.AddArray<u8>(page.m_Enabled, page.m_EnabledAddressMod16);
	return CEnabledView(data, u32(page.m_Enabled.size()), 1);
}

// Whole sorts.

template<typename _Type>
static void Add(CHash &hash, const TMemoryView<_Type> &elements)
{
	hash.Add(elements.Data(), elements.CoveredBytes());
}

static void SortPoints(CHash &hash, CMemory &memory, CTriangleSorter &sorter, u32 particleCount)
{
	void *const workingBuffer = memory.Add(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(particleCount));
	sorter.SortPoints_AutogenIndices(workingBuffer);
	Add(hash, CTriangleSorter::WorkingBuffer_SortedPoints(workingBuffer, particleCount, 0));
	Add(hash, CTriangleSorter::WorkingBuffer_SortedPoints(workingBuffer, particleCount, 1));
}

template<typename _Index>
static void SortTriangles(CHash &hash, CMemory &memory, CTriangleSorter &sorter, u32 indexCount)
{
	void *const workingBuffer = memory.Add(CTriangleSorter::GetAutogenIndicesWorkingBufferSize_tri(indexCount));
	sorter.SortTriangles_AutogenIndices(workingBuffer);
	Add(hash, CTriangleSorter::WorkingBuffer_SortedTris(workingBuffer, indexCount, 0));
	Add(hash, CTriangleSorter::WorkingBuffer_SortedTris(workingBuffer, indexCount, 1));
	Add(hash, CTriangleSorter::WorkingBuffer_TriangleIndices<_Index>(workingBuffer, indexCount));
}

// With jobs the output is the same, whatever their number and order. On several threads that is the business of tests.
class CJobOrder
{
public:
	static constexpr u32 kOrderCount = 3;

	CJobOrder(u32 order, u32 seed)
		: m_Order(order)
		, m_Seed(seed)
	{
	}

	SSortJobs Jobs() const
	{
		constexpr u32 kJobCounts[] = {1, 2, 3, 7, 16, 64};
		SSortJobs jobs = {};
		jobs.m_Run = [](void *self, u32 jobCount, SSortJobs::CbJob job, void *context)
		{ static_cast<const CJobOrder *>(self)->_Run(jobCount, job, context); };
		jobs.m_UserData = const_cast<CJobOrder *>(this);
		jobs.m_MaxJobCount = kJobCounts[m_Seed % 6];
		return jobs;
	}

private:
	void _Run(u32 jobCount, SSortJobs::CbJob job, void *context) const
	{
		std::vector<u32> jobIds(jobCount);
		for (u32 i = 0; i < jobCount; ++i)
			jobIds[i] = m_Order == 0 ? i : jobCount - 1 - i;
		Model::CRandom random(m_Seed);
		for (u32 i = jobCount; m_Order == 2 && i > 1; --i)
			std::swap(jobIds[i - 1], jobIds[random.Below(i)]);
		for (const u32 jobId : jobIds)
			job(context, jobId);
	}

	const u32 m_Order; // natural, reversed, shuffled
	const u32 m_Seed;
};

static void SortInJobs(CMemory &memory, CTriangleSorter &sorter, const SScene &scene, const CJobOrder &order)
{
	const SSortJobs jobs = order.Jobs();
	const bool isTriangles = scene.m_Geometry == Model::EGeometry::PerPage;
	const u64 size = isTriangles
	                     ? CTriangleSorter::GetJobsWorkingBufferSize_tri(scene.m_TriangleIndexCount, jobs.m_MaxJobCount)
	                     : CTriangleSorter::GetJobsWorkingBufferSize(scene.m_ParticleCount, jobs.m_MaxJobCount);
	void *const workingBuffer = memory.Add(std::size_t(size), 0);
	if (isTriangles)
		sorter.SortTriangles_AutogenIndices(workingBuffer, size, jobs);
	else
		sorter.SortPoints_AutogenIndices(workingBuffer, size, jobs);
}

template<typename _Index>
static void HashSort(CHash &hash, const SScene &scene)
{
	CMemory memory;
	CTriangleSorter sorter;
	_Index *const output =
		static_cast<_Index *>(memory.Add(scene.m_IndexCapacity * sizeof(_Index), scene.m_OutputAddressMod16));
	sorter.Setup_OutputIndexBuffer(TMemoryView<_Index>(output, scene.m_IndexCapacity), scene.m_VertexCount);

	std::vector<CPositionView> positions;
	std::vector<CValueView> values;
	std::vector<CEnabledView> enableds;
	std::vector<u32> renderedCounts, vertexCounts;
	std::vector<CTriangleSorter::CIndexPattern> patterns;
	for (const Model::SPage &page : scene.m_Pages)
	{
		positions.push_back(AddPositions(memory, page.m_Positions));
		values.push_back(AddValues(memory, page.m_Values));
		enableds.push_back(AddEnabled(memory, page));
		renderedCounts.push_back(page.m_RenderedCount);
		patterns.push_back(ConstView(page.m_Pattern.data(), page.m_Pattern.size()));
		vertexCounts.push_back(page.m_VerticesPerParticle);
	}
	const u32 pageCount = u32(scene.m_Pages.size());
	const CTriangleSorter::CEnabledPages enabledPages(enableds.data(), pageCount, sizeof(CEnabledView));
	const CTriangleSorter::CRenderedCounts rendered(renderedCounts.data(), pageCount, sizeof(u32));
	const CFloat3 camera = Float3FromBits(scene.m_Camera);
	if (scene.m_SortType == Model::ESortType::ByPosition)
		sorter.Setup_InputPageCache(CTriangleSorter::CPositionPages(positions.data(), pageCount, sizeof(CPositionView)),
			enabledPages, rendered, scene.m_ParticleCount, camera);
	else
		sorter.Setup_InputPageCache(CTriangleSorter::CSortKeyPages(values.data(), pageCount, sizeof(CValueView)),
			enabledPages, rendered, scene.m_ParticleCount, camera);

	std::vector<u32> patternCopy = scene.m_Pattern;
	const TMemoryView<u32> pattern(patternCopy.data(), u32(patternCopy.size()));
	const TMemoryView<const u32> indexList =
		ConstView(memory.AddArray<u32>(scene.m_IndexList, scene.m_IndexListAddressMod16), scene.m_IndexList.size());
	const TMemoryView<const CFloat4> quadCenters =
		ConstView(memory.AddArray<CFloat4>(scene.m_QuadCenters), scene.m_QuadCenters.size());
	switch (scene.m_Geometry)
	{
	case Model::EGeometry::Constant:
		sorter.Setup_Geometry(pattern, scene.m_VerticesPerParticle);
		break;
	case Model::EGeometry::IndexList:
		sorter.Setup_Geometry(pattern, indexList);
		break;
	case Model::EGeometry::IndexListAndQuadCenters:
		sorter.Setup_Geometry(pattern, indexList, quadCenters, scene.m_VerticesPerParticle);
		break;
	case Model::EGeometry::PerPage:
		sorter.Setup_Geometry(ConstView(patterns.data(), pageCount), ConstView(vertexCounts.data(), pageCount),
			scene.m_TriangleIndexCount);
		break;
	}

	const std::size_t outputSize = scene.m_IndexCapacity * sizeof(_Index);
	const std::vector<u8> untouched(reinterpret_cast<u8 *>(output), reinterpret_cast<u8 *>(output) + outputSize);
	if (scene.m_Geometry == Model::EGeometry::PerPage)
		SortTriangles<_Index>(hash, memory, sorter, scene.m_TriangleIndexCount);
	else
		SortPoints(hash, memory, sorter, scene.m_ParticleCount);
	hash.Add(output, outputSize);

	const std::vector<u8> sorted(reinterpret_cast<u8 *>(output), reinterpret_cast<u8 *>(output) + outputSize);
	for (u32 order = 0; order < CJobOrder::kOrderCount; ++order)
	{
		if (outputSize != 0)
			std::memcpy(output, untouched.data(), outputSize);
		SortInJobs(memory, sorter, scene, CJobOrder(order, scene.m_ParticleCount + order));
		if (outputSize != 0 && std::memcmp(output, sorted.data(), outputSize) != 0)
			hash.Add("jobs write other bits", 21);
	}
}

static void HashScene(CHash &hash, const SScene &scene)
{
	if (scene.m_IndexType == Model::EIndexType::U32)
		HashSort<u32>(hash, scene);
	else
		HashSort<u16>(hash, scene);
}

// Static functions.

static void HashFillCalls(CHash &hash, const Model::SFillCall &call)
{
	CMemory memory;
	const CPositionView positions = AddPositions(memory, call.m_Page.m_Positions);
	const CValueView values = AddValues(memory, call.m_Page.m_Values);
	const CEnabledView enableds = AddEnabled(memory, call.m_Page);
	const u32 *const indexList = memory.AddArray<u32>(call.m_IndexList, call.m_IndexListAddressMod16);
	const CFloat3 camera = Float3FromBits(call.m_Camera);
	const auto addRecords = [&]
	{
		void *const records = memory.Add(call.m_RecordCount * sizeof(SIndexAndDepth), call.m_RecordsAddressMod16);
		return TMemoryView<SIndexAndDepth>(static_cast<SIndexAndDepth *>(records), call.m_RecordCount);
	};

	TMemoryView<SIndexAndDepth> records = addRecords();
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
		records, positions, camera, enableds, call.m_IndexStart, call.m_IndexIncrement);
	Add(hash, records);
	records = addRecords();
	CTriangleSorter::FillSortingIndirectionsListPoint_NoIndices(
		records, values, enableds, call.m_IndexStart, call.m_IndexIncrement);
	Add(hash, records);
	records = addRecords();
	CTriangleSorter::FillSortingIndirectionsListPoint_Indices(
		records, positions, camera, enableds, indexList, call.m_MaxVertexId);
	Add(hash, records);
	records = addRecords();
	CTriangleSorter::FillSortingIndirectionsListPoint_Indices(records, values, enableds, indexList, call.m_MaxVertexId);
	Add(hash, records);
}

template<typename _Index>
static void HashExpandCall(CHash &hash, const Model::SExpandCall &call)
{
	CMemory memory;
	const std::size_t size = call.m_Pattern.size() * call.m_Records.size() * sizeof(_Index);
	_Index *const output = static_cast<_Index *>(memory.Add(size, call.m_OutputAddressMod16));
	CTriangleSorter::ExpandIndices(ConstView(call.m_Pattern.data(), call.m_Pattern.size()),
		memory.AddArray<SIndexAndDepth>(call.m_Records), output, u32(call.m_Records.size()));
	hash.Add(output, size);
}

static void HashExpandCall(CHash &hash, const Model::SExpandCall &call)
{
	if (call.m_IndexType == Model::EIndexType::U16)
		HashExpandCall<u16>(hash, call);
	else if (!(call.m_Pattern.size() == 12 && call.m_Records.empty())) // at 8 modulo 16 it takes a record at least
		HashExpandCall<u32>(hash, call);
}

// The pattern and the quad centres of a scene, a record for each entry of its list that is a vertex.
template<typename _Index>
static void HashQuadCall(CHash &hash, const SScene &scene)
{
	CMemory memory;
	std::vector<Model::SRecord> records;
	for (const u32 entry : scene.m_IndexList)
	{
		if (entry < scene.m_VertexCount)
			records.push_back({entry * 0x9E3779B1u, entry});
	}
	const std::size_t size = scene.m_Pattern.size() * records.size() * sizeof(_Index);
	_Index *const output = static_cast<_Index *>(memory.Add(size, scene.m_OutputAddressMod16));
	const CFloat4 *const quadCenters = memory.AddArray<CFloat4>(scene.m_QuadCenters);
	CTriangleSorter::ExpandAndSortIndices(ConstView(scene.m_Pattern.data(), scene.m_Pattern.size()),
		ConstView(quadCenters, scene.m_QuadCenters.size()), Float3FromBits(scene.m_Camera),
		memory.AddArray<SIndexAndDepth>(records), output, u32(records.size()), scene.m_VerticesPerParticle);
	hash.Add(output, size);
}

template<typename _Index>
static void HashGatherCall(CHash &hash, CRandom &random, const TMemoryView<SIndexAndDepth> &triangles)
{
	CMemory memory;
	const u32 indexCount = triangles.Count() * 3;
	const std::size_t size = indexCount * sizeof(_Index);
	const std::size_t sourceAddress = random.Below(16 / sizeof(_Index)) * sizeof(_Index);
	const std::size_t outputAddress = random.Below(16 / sizeof(_Index)) * sizeof(_Index);
	_Index *const source = static_cast<_Index *>(memory.Add(size, sourceAddress));
	for (u32 i = 0; i < indexCount; ++i)
		source[i] = _Index(random.Next());
	_Index *const output = static_cast<_Index *>(memory.Add(size, outputAddress));
	CTriangleSorter::ApplySortingIndirectionsListTriangles(
		triangles, ConstView<_Index>(source, indexCount), output, triangles.Count());
	hash.Add(output, size);
}

// Particle records widened to triangles, sorted with ties, and triangles gathered in that order.
static void HashTriangleSteps(CHash &hash, std::uint64_t seed)
{
	CRandom random(seed);
	CMemory memory;
	const u32 particleCount = random.Below(60);
	const u32 trianglesPerParticle = random.Between(1, 9);
	const u32 count = particleCount * trianglesPerParticle;
	const u32 keyMask = random.Chance(50) ? 0xF0000001u : 0xFFFFFFFFu;
	const std::size_t listAddress = random.Below(2) * 8;
	SIndexAndDepth *const records =
		static_cast<SIndexAndDepth *>(memory.Add(count * sizeof(SIndexAndDepth), listAddress));
	for (u32 i = 0; i < particleCount; ++i)
		records[i] = {random.Next() & keyMask, i};
	const TMemoryView<SIndexAndDepth> list(records, count);
	CTriangleSorter::ExpandSortingIndirectionsListPoints_Triangles(list, particleCount, trianglesPerParticle, 0);
	Add(hash, list);

	SIndexAndDepth *const sorted =
		static_cast<SIndexAndDepth *>(memory.Add(count * sizeof(SIndexAndDepth), random.Below(2) * 8));
	const TMemoryView<SIndexAndDepth> sortedList(sorted, count);
	Sort<SSortKeyExtractor_TriangleIndexAndDepth>(list.Begin(), list.End(), sortedList.Begin());
	Add(hash, list);
	Add(hash, sortedList);

	if (random.Chance(50))
		HashGatherCall<u16>(hash, random, sortedList);
	else
		HashGatherCall<u32>(hash, random, sortedList);
}

// Corpus.

static SSceneOptions MixedPages()
{
	SSceneOptions options;
	options.m_Width = {1, 40};
	return options;
}

static SSceneOptions HostileFloats()
{
	SSceneOptions options = MixedPages();
	options.m_HostilePercent = 60;
	options.m_HostileCamera = true;
	return options;
}

static SSceneOptions ManyParticles()
{
	SSceneOptions options;
	options.m_PageCount = {1, 4};
	options.m_ParticlesPerPage = {100, 1500};
	options.m_HostileCamera = true;
	return options;
}

namespace
{
// Runs cases one after another and keeps count.
class CCorpus
{
public:
	explicit CCorpus(bool printEach)
		: m_PrintEach(printEach)
	{
	}

	template<typename _Case>
	void Run(const char *name, u32 count, const _Case &runCase)
	{
		for (u32 seed = 1; seed <= count; ++seed)
		{
			runCase(std::uint64_t(seed));
			if (m_PrintEach)
				std::printf("%s %u: %s\n", name, seed, Text().c_str());
		}
	}

	CHash &Hash() { return m_Hash; }
	std::string Text() const
	{
		char text[17];
		std::snprintf(text, sizeof(text), "%08x%08x", unsigned(m_Hash.Value() >> 32), unsigned(m_Hash.Value()));
		return text;
	}

private:
	const bool m_PrintEach;
	CHash m_Hash;
};
} // namespace

static void RunAll(CCorpus &corpus)
{
	CHash &hash = corpus.Hash();
	const auto points = [&hash](const SSceneOptions &options)
	{ return [&hash, options](std::uint64_t seed) { HashScene(hash, RandomPointScene(seed, options)); }; };
	const auto triangles = [&hash](const SSceneOptions &options)
	{ return [&hash, options](std::uint64_t seed) { HashScene(hash, RandomTriangleScene(seed, options)); }; };

	corpus.Run("points of mixed pages", 150, points(MixedPages()));
	corpus.Run("points of hostile floats", 100, points(HostileFloats()));
	corpus.Run("many points", 12, points(ManyParticles()));
	corpus.Run("points of common widths", 120,
		[&hash](std::uint64_t seed)
		{
			constexpr u32 kWidths[] = {1, 3, 6, 12};
			SSceneOptions options;
			options.m_PageCount = {1, 3};
			options.m_Width = {kWidths[seed % 4], kWidths[seed % 4]};
			HashScene(hash, RandomPointScene(seed, options));
		});

	corpus.Run("triangles of mixed pages", 80, triangles(MixedPages()));
	corpus.Run("triangles of hostile floats", 60, triangles(HostileFloats()));
	corpus.Run("many triangles", 4, triangles(ManyParticles()));

	corpus.Run("fill", 150, [&hash](std::uint64_t seed) { HashFillCalls(hash, RandomFillCall(seed, MixedPages())); });
	corpus.Run("fill of hostile floats", 150,
		[&hash](std::uint64_t seed) { HashFillCalls(hash, RandomFillCall(seed, HostileFloats())); });
	corpus.Run(
		"expand", 200, [&hash](std::uint64_t seed) { HashExpandCall(hash, RandomExpandCall(seed, MixedPages())); });
	corpus.Run("expand quads", 60,
		[&hash](std::uint64_t seed)
		{
			SSceneOptions options = seed % 2 == 0 ? MixedPages() : HostileFloats();
			options.m_Geometry = Model::EGeometry::IndexListAndQuadCenters;
			const SScene scene = RandomPointScene(seed, options);
			if (scene.m_IndexType == Model::EIndexType::U32)
				HashQuadCall<u32>(hash, scene);
			else
				HashQuadCall<u16>(hash, scene);
		});
	corpus.Run("widen, sort, gather", 100, [&hash](std::uint64_t seed) { HashTriangleSteps(hash, seed); });
}

// The recorded hash: the first word of the file.
static std::string RecordedHash(const char *path)
{
	char word[32] = "";
	if (std::FILE *const file = std::fopen(path, "r"))
	{
		if (std::fscanf(file, "%31s", word) != 1)
			word[0] = 0;
		std::fclose(file);
	}
	return word;
}

int main(int argc, char **argv)
{
	// Pages on an odd triangle report themselves, and slow paths warn; none of it is this program's business.
	Assert::SetReportHandler([](const Assert::SReport &, void *) { return int(Assert::Decision_Continue); }, null);
	CPerfHotspotsRegistry::Registry()->SetFirstTouchHandler([](const CLogUniqueCollection::SEntry &, void *) {}, null);

	const char *const argument = argc > 1 ? argv[1] : "";
	const bool printEach = std::strcmp(argument, "--each") == 0;
	CCorpus corpus(printEach);
	RunAll(corpus);
	std::printf("%s\n", corpus.Text().c_str());

	for (u32 set = Cpu::InstructionSet(); set-- != Cpu::InstructionSet_Baseline;)
	{
		Cpu::SetMaxInstructionSet(Cpu::EInstructionSet(set));
		CCorpus narrower(printEach);
		RunAll(narrower);
		if (narrower.Text() != corpus.Text())
		{
			std::fprintf(stderr, "With instruction set %u this build writes other bits: %s.\n", unsigned(set),
				narrower.Text().c_str());
			return 1;
		}
	}

	if (*argument != 0 && !printEach)
	{
		const std::string recorded = RecordedHash(argument);
		if (corpus.Text() != recorded)
		{
			std::fprintf(stderr, "This build writes other bits than the ones that the recorded hash %s stands for.\n",
				recorded.empty() ? "(missing)" : recorded.c_str());
			return 1;
		}
	}
	return 0;
}
