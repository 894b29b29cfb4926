// Billboards in Vulkan: the sorter writes straight into a mapped, host-visible index buffer, and the device draws from
// it. A few hundred blended squares are drawn without a window. They are compared with the same squares as the host
// blends them, in an order of its own. The validation layer has to be silent.
//
//   minimal_vulkan_billboards [PICTURE.png]

#include "ge_mesh_pages.h"

#include "billboard_frag.h"
#include "billboard_vert.h"
#include "minimal.h"
#include "vulkan_headless.h"
#include <algorithm>
#include <cmath>
#include <numeric>

// The header is C, written without our warnings in mind.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wunused-function"
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#include <stb/stb_image_write.h>
#pragma GCC diagnostic pop

using namespace Vexmoor;

constexpr u32 kSize = 256; // pixels along each side: a power of two, so that clip space has every pixel's edge exactly
constexpr u32 kCount = 400;

// A square of whole pixels, where a perspective camera sees the particle.
struct SSprite
{
	s32 m_Left, m_Top, m_Size;
	float m_Colour[4];
};

static std::vector<SSprite> Project(const std::vector<CFloat3> &positions, const CFloat3 &camera)
{
	std::vector<SSprite> sprites;
	for (const CFloat3 &position : positions)
	{
		const float scale = 300.0f / (position.z() - camera.z()); // pixels per unit
		const float near = 0.5f - 0.05f * position.z();           // 0 to 1: from blue to orange
		const float colour[4] = {near, 0.5f * near, 0.8f * (1 - near), 0.6f};
		SSprite sprite;
		sprite.m_Size = s32(2.0f * scale);
		sprite.m_Left = s32(kSize / 2 + (position.x() - camera.x()) * scale) - sprite.m_Size / 2;
		sprite.m_Top = s32(kSize / 2 - (position.y() - camera.y()) * scale) - sprite.m_Size / 2;
		std::copy_n(colour, 4, sprite.m_Colour);
		sprites.push_back(sprite);
	}
	return sprites;
}

static void WriteVertices(const std::vector<SSprite> &sprites, Minimal::SVulkanVertex *vertex)
{
	for (const SSprite &sprite : sprites)
	{
		for (u32 corner = 0; corner < 4; ++corner)
		{
			const s32 x = sprite.m_Left + (corner == 1 || corner == 2 ? sprite.m_Size : 0);
			const s32 y = sprite.m_Top + (corner >= 2 ? sprite.m_Size : 0);
			vertex->m_Position[0] = float(x) * (2.0f / kSize) - 1;
			vertex->m_Position[1] = float(y) * (2.0f / kSize) - 1;
			std::copy_n(sprite.m_Colour, 4, vertex->m_Colour);
			++vertex;
		}
	}
}

// The order that the device draws: it is the sorter's alone, from the positions to the mapped memory.
static void SortInto(
	const Minimal::SMappedBuffer &indexBuffer, const std::vector<CFloat3> &positions, const CFloat3 &camera)
{
	const CPositionPage pages[] = {ViewOf(positions)};
	u32 quad[] = {0, 1, 2, 0, 2, 3};
	CTriangleSorter sorter;
	sorter.Setup_OutputIndexBuffer(ViewOf(static_cast<u32 *>(indexBuffer.m_Data), kCount * 6), kCount * 4);
	SetupInputPages(sorter, ViewOf(pages), camera);
	sorter.Setup_Geometry(ViewOf(quad), 4);
	std::vector<u8> scratch(CTriangleSorter::GetAutogenIndicesWorkingBufferSize(kCount));
	Minimal::RequireValid(sorter, scratch);
	sorter.SortPoints_AutogenIndices(scratch.data());
}

// Blends as the device does, rounding to bytes after each square.
static std::vector<u8> BlendOnHost(const std::vector<SSprite> &sprites, const std::vector<u32> &order)
{
	std::vector<u8> pixels(size_t(kSize) * kSize * 4);
	for (size_t alpha = 3; alpha < pixels.size(); alpha += 4)
		pixels[alpha] = 255;
	for (const u32 particle : order)
	{
		const SSprite &sprite = sprites[particle];
		for (s32 y = std::max(sprite.m_Top, 0); y < std::min(sprite.m_Top + sprite.m_Size, s32(kSize)); ++y)
		{
			for (s32 x = std::max(sprite.m_Left, 0); x < std::min(sprite.m_Left + sprite.m_Size, s32(kSize)); ++x)
			{
				u8 *const pixel = &pixels[(size_t(y) * kSize + size_t(x)) * 4];
				const float covered = sprite.m_Colour[3];
				for (u32 i = 0; i < 3; ++i)
					pixel[i] = u8(sprite.m_Colour[i] * covered * 255 + pixel[i] * (1 - covered) + 0.5f);
			}
		}
	}
	return pixels;
}

static u32 LargestDifference(const std::vector<u8> &a, const std::vector<u8> &b)
{
	u32 largest = 0;
	for (size_t i = 0; i < a.size(); ++i)
		largest = std::max(largest, u32(std::abs(int(a[i]) - int(b[i]))));
	return largest;
}

int main(int argumentCount, char **arguments)
{
	if (argumentCount > 2)
	{
		std::fprintf(stderr, "One argument at most: the file to write the picture to.\n");
		return 2;
	}

	const std::vector<CFloat3> positions = Minimal::ScatteredPoints(kCount, 1);
	const CFloat3 camera(0, 0, -22);
	const std::vector<SSprite> sprites = Project(positions, camera);
	std::vector<u8> drawn;
	{
		const Minimal::SShaders shaders = {
			billboard_vert, sizeof(billboard_vert), billboard_frag, sizeof(billboard_frag)};
		Minimal::CVulkanHeadless vulkan(kSize, kSize, shaders);
		const Minimal::SMappedBuffer vertexBuffer =
			vulkan.CreateMappedBuffer(kCount * 4 * sizeof(Minimal::SVulkanVertex), VK_BUFFER_USAGE_VERTEX_BUFFER_BIT);
		const Minimal::SMappedBuffer indexBuffer =
			vulkan.CreateMappedBuffer(kCount * 6 * sizeof(u32), VK_BUFFER_USAGE_INDEX_BUFFER_BIT);
		WriteVertices(sprites, static_cast<Minimal::SVulkanVertex *>(vertexBuffer.m_Data));
		SortInto(indexBuffer, positions, camera);
		drawn = vulkan.Draw(
			[&](VkCommandBuffer commands)
			{
				const VkDeviceSize start = 0;
				vkCmdBindVertexBuffers(commands, 0, 1, &vertexBuffer.m_Buffer, &start);
				vkCmdBindIndexBuffer(commands, indexBuffer.m_Buffer, 0, VK_INDEX_TYPE_UINT32);
				vkCmdDrawIndexed(commands, kCount * 6, 1, 0, 0, 0);
			});
		std::printf("Drawn by %s: %u billboards.\n", vulkan.DeviceName(), kCount);
	}
	if (argumentCount == 2 && stbi_write_png(arguments[1], kSize, kSize, 4, drawn.data(), kSize * 4) == 0)
	{
		std::fprintf(stderr, "The picture '%s' cannot be written.\n", arguments[1]);
		return 2;
	}

	std::vector<u32> order(kCount);
	std::iota(order.begin(), order.end(), 0u);
	const u32 unsortedDifference = LargestDifference(drawn, BlendOnHost(sprites, order));
	std::sort(order.begin(), order.end(),
		[&](u32 a, u32 b)
		{ return Minimal::SquaredDistance(positions[a], camera) > Minimal::SquaredDistance(positions[b], camera); });
	const u32 difference = LargestDifference(drawn, BlendOnHost(sprites, order));
	std::printf("Off by %u of 255 from the host's picture in sorted order, by %u from the one in no order.\n",
		difference, unsortedDifference);
	constexpr u32 kTolerance = 3; // devices round a blend by 1 up or down, and what is blended over it fades it
	Minimal::Require(difference <= kTolerance, "the picture is not that of the sorted order.");
	Minimal::Require(unsortedDifference > 10 * kTolerance, "the picture would be the same in any order.");
	Minimal::Require(Minimal::CVulkanHeadless::ValidationMessageCount() == 0, "the validation layer has spoken.");
	return 0;
}
