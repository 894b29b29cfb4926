#pragma once

// What a Vulkan program needs before it draws its first triangle: a device that the validation layer watches, memory
// that stays mapped, an image to draw to and to read back. Nothing here is about sorting. If something fails, the
// program ends with a sentence and exit code 1.

#include "vx_defs.h"

#include <vector>
#include <vulkan/vulkan.h>

namespace Minimal
{
using namespace Vexmoor;

/// What the vertex shader reads.
struct SVulkanVertex
{
	float m_Position[2]; ///< In clip space, -1 to 1.
	float m_Colour[4];   ///< Red, green, blue; and how much it covers.
};

struct SShaders
{
	const u32 *m_Vertex;
	size_t m_VertexSizeInBytes;
	const u32 *m_Fragment;
	size_t m_FragmentSizeInBytes;
};

struct SMappedBuffer
{
	VkBuffer m_Buffer;
	VkDeviceMemory m_Memory;
	void *m_Data; ///< Written by the host while the device does not read; coherent, so no flush is needed.
};

/// Draws blended triangles, without a window, to an image of its own.
class CVulkanHeadless
{
public:
	CVulkanHeadless(u32 width, u32 height, const SShaders &shaders);
	~CVulkanHeadless();
	CVulkanHeadless(const CVulkanHeadless &) = delete;
	CVulkanHeadless &operator=(const CVulkanHeadless &) = delete;

	const char *DeviceName() const { return m_Properties.deviceName; }

	/// Memory that the host sees, mapped for as long as this lives.
	SMappedBuffer CreateMappedBuffer(VkDeviceSize sizeInBytes, VkBufferUsageFlags usage);

	/// Draws to the image, black at first: record(commands) binds buffers and draws. Returns when it is done, with rows
	/// of pixels of four bytes.
	template<typename _Record>
	std::vector<u8> Draw(const _Record &record)
	{
		BeginDrawing();
		record(m_Commands);
		return EndDrawing();
	}

	/// What the validation layer has said in this process; it is also on stderr.
	static u32 ValidationMessageCount();

private:
	void CreateInstance();
	void ChooseDevice();
	void CreateDevice();
	void CreateImage();
	void CreatePipeline(const SShaders &shaders);
	VkShaderModule CreateShader(const u32 *code, size_t sizeInBytes);
	VkDeviceMemory Allocate(const VkMemoryRequirements &requirements, VkMemoryPropertyFlags flags);
	void ImageBarrier(VkImageLayout from,
		VkImageLayout to,
		VkPipelineStageFlags2 firstStage,
		VkAccessFlags2 firstAccess,
		VkPipelineStageFlags2 secondStage,
		VkAccessFlags2 secondAccess);
	void BeginDrawing();
	std::vector<u8> EndDrawing();

	const VkExtent2D m_Extent;
	VkInstance m_Instance = null;
	VkDebugUtilsMessengerEXT m_Messenger = null;
	VkPhysicalDevice m_PhysicalDevice = null;
	VkPhysicalDeviceProperties m_Properties = {};
	u32 m_QueueFamily = 0;
	VkDevice m_Device = null;
	VkQueue m_Queue = null;
	VkCommandPool m_CommandPool = null;
	VkCommandBuffer m_Commands = null;
	VkImage m_Image = null;
	VkDeviceMemory m_ImageMemory = null;
	VkImageView m_ImageView = null;
	VkPipelineLayout m_PipelineLayout = null;
	VkPipeline m_Pipeline = null;
	std::vector<SMappedBuffer> m_Buffers;
	SMappedBuffer m_Readback = {};
};
} // namespace Minimal
