// Vulkan 1.3, with dynamic rendering: no render passes and no framebuffers.

#include "vulkan_headless.h"

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Minimal
{
namespace
{
	constexpr VkFormat kFormat = VK_FORMAT_R8G8B8A8_UNORM;
	constexpr u32 kBytesPerPixel = 4;
	const char *const kValidationLayer = "VK_LAYER_KHRONOS_validation";

	const char *const kNoDevice =
		"There is no device with Vulkan 1.3 here: the package mesa-vulkan-drivers has one in software.";

	std::atomic<u32> s_ValidationMessageCount(0);

	void Require(bool holds, const char *sentenceIfNot)
	{
		if (holds)
			return;
		std::fprintf(stderr, "%s\n", sentenceIfNot);
		std::exit(1);
	}

	void Check(VkResult result, const char *call)
	{
		if (result == VK_SUCCESS)
			return;
		std::fprintf(stderr, "%s failed with result %d.\n", call, int(result));
		std::exit(1);
	}

	VKAPI_ATTR VkBool32 VKAPI_CALL OnMessage(VkDebugUtilsMessageSeverityFlagBitsEXT,
		VkDebugUtilsMessageTypeFlagsEXT,
		const VkDebugUtilsMessengerCallbackDataEXT *data,
		void *)
	{
		++s_ValidationMessageCount;
		std::fprintf(stderr, "validation: %s\n", data->pMessage);
		return VK_FALSE;
	}

	VkDebugUtilsMessengerCreateInfoEXT MessengerInfo()
	{
		VkDebugUtilsMessengerCreateInfoEXT info = {};
		info.sType = VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT;
		info.messageSeverity =
			VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
		info.messageType =
			VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_TYPE_PERFORMANCE_BIT_EXT;
		info.pfnUserCallback = OnMessage;
		return info;
	}
} // namespace

u32 CVulkanHeadless::ValidationMessageCount()
{
	return s_ValidationMessageCount;
}

CVulkanHeadless::CVulkanHeadless(u32 width, u32 height, const SShaders &shaders)
	: m_Extent{width, height}
{
	CreateInstance();
	ChooseDevice();
	CreateDevice();
	CreateImage();
	CreatePipeline(shaders);
	m_Readback = CreateMappedBuffer(VkDeviceSize(width) * height * kBytesPerPixel, VK_BUFFER_USAGE_TRANSFER_DST_BIT);
}

CVulkanHeadless::~CVulkanHeadless()
{
	for (const SMappedBuffer &buffer : m_Buffers)
	{
		vkDestroyBuffer(m_Device, buffer.m_Buffer, null);
		vkFreeMemory(m_Device, buffer.m_Memory, null);
	}
	vkDestroyPipeline(m_Device, m_Pipeline, null);
	vkDestroyPipelineLayout(m_Device, m_PipelineLayout, null);
	vkDestroyImageView(m_Device, m_ImageView, null);
	vkDestroyImage(m_Device, m_Image, null);
	vkFreeMemory(m_Device, m_ImageMemory, null);
	vkDestroyCommandPool(m_Device, m_CommandPool, null);
	vkDestroyDevice(m_Device, null);
	const auto destroyMessenger = reinterpret_cast<PFN_vkDestroyDebugUtilsMessengerEXT>(
		vkGetInstanceProcAddr(m_Instance, "vkDestroyDebugUtilsMessengerEXT"));
	destroyMessenger(m_Instance, m_Messenger, null);
	vkDestroyInstance(m_Instance, null);
}

void CVulkanHeadless::CreateInstance()
{
	u32 layerCount = 0;
	Check(vkEnumerateInstanceLayerProperties(&layerCount, null), "vkEnumerateInstanceLayerProperties");
	std::vector<VkLayerProperties> layers(layerCount);
	Check(vkEnumerateInstanceLayerProperties(&layerCount, layers.data()), "vkEnumerateInstanceLayerProperties");
	bool hasValidation = false;
	for (const VkLayerProperties &layer : layers)
		hasValidation = hasValidation || std::strcmp(layer.layerName, kValidationLayer) == 0;
	Require(hasValidation, "There is no Vulkan validation layer here: the package is vulkan-validationlayers.");

	const VkDebugUtilsMessengerCreateInfoEXT messengerInfo = MessengerInfo();
	const VkValidationFeatureEnableEXT synchronization = VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT;
	VkValidationFeaturesEXT features = {};
	features.sType = VK_STRUCTURE_TYPE_VALIDATION_FEATURES_EXT;
	features.pNext = &messengerInfo; // for what is said while the instance is made and unmade
	features.enabledValidationFeatureCount = 1;
	features.pEnabledValidationFeatures = &synchronization;

	VkApplicationInfo application = {};
	application.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO;
	application.apiVersion = VK_API_VERSION_1_3;
	const char *const extension = VK_EXT_DEBUG_UTILS_EXTENSION_NAME;
	VkInstanceCreateInfo info = {};
	info.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
	info.pNext = &features;
	info.pApplicationInfo = &application;
	info.enabledLayerCount = 1;
	info.ppEnabledLayerNames = &kValidationLayer;
	info.enabledExtensionCount = 1;
	info.ppEnabledExtensionNames = &extension;
	const VkResult result = vkCreateInstance(&info, null, &m_Instance);
	Require(result != VK_ERROR_INCOMPATIBLE_DRIVER, kNoDevice);
	Check(result, "vkCreateInstance");

	const auto createMessenger = reinterpret_cast<PFN_vkCreateDebugUtilsMessengerEXT>(
		vkGetInstanceProcAddr(m_Instance, "vkCreateDebugUtilsMessengerEXT"));
	Check(createMessenger(m_Instance, &messengerInfo, null, &m_Messenger), "vkCreateDebugUtilsMessengerEXT");
}

// The first device that draws and has Vulkan 1.3.
void CVulkanHeadless::ChooseDevice()
{
	u32 deviceCount = 0;
	Check(vkEnumeratePhysicalDevices(m_Instance, &deviceCount, null), "vkEnumeratePhysicalDevices");
	std::vector<VkPhysicalDevice> devices(deviceCount);
	Check(vkEnumeratePhysicalDevices(m_Instance, &deviceCount, devices.data()), "vkEnumeratePhysicalDevices");
	for (const VkPhysicalDevice device : devices)
	{
		vkGetPhysicalDeviceProperties(device, &m_Properties);
		u32 familyCount = 0;
		vkGetPhysicalDeviceQueueFamilyProperties(device, &familyCount, null);
		std::vector<VkQueueFamilyProperties> families(familyCount);
		vkGetPhysicalDeviceQueueFamilyProperties(device, &familyCount, families.data());
		for (m_QueueFamily = 0; m_QueueFamily < familyCount; ++m_QueueFamily)
		{
			m_PhysicalDevice = device;
			const bool draws = (families[m_QueueFamily].queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0;
			if (draws && m_Properties.apiVersion >= VK_API_VERSION_1_3)
				return;
		}
	}
	Require(false, kNoDevice);
}

void CVulkanHeadless::CreateDevice()
{
	const float priority = 1.0f;
	VkDeviceQueueCreateInfo queue = {};
	queue.sType = VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO;
	queue.queueFamilyIndex = m_QueueFamily;
	queue.queueCount = 1;
	queue.pQueuePriorities = &priority;
	VkPhysicalDeviceVulkan13Features features = {};
	features.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_3_FEATURES;
	features.dynamicRendering = VK_TRUE;
	features.synchronization2 = VK_TRUE;
	VkDeviceCreateInfo info = {};
	info.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
	info.pNext = &features;
	info.queueCreateInfoCount = 1;
	info.pQueueCreateInfos = &queue;
	Check(vkCreateDevice(m_PhysicalDevice, &info, null, &m_Device), "vkCreateDevice");
	vkGetDeviceQueue(m_Device, m_QueueFamily, 0, &m_Queue);

	VkCommandPoolCreateInfo pool = {};
	pool.sType = VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO;
	pool.flags = VK_COMMAND_POOL_CREATE_RESET_COMMAND_BUFFER_BIT;
	pool.queueFamilyIndex = m_QueueFamily;
	Check(vkCreateCommandPool(m_Device, &pool, null, &m_CommandPool), "vkCreateCommandPool");
	VkCommandBufferAllocateInfo commands = {};
	commands.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO;
	commands.commandPool = m_CommandPool;
	commands.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
	commands.commandBufferCount = 1;
	Check(vkAllocateCommandBuffers(m_Device, &commands, &m_Commands), "vkAllocateCommandBuffers");
}

VkDeviceMemory CVulkanHeadless::Allocate(const VkMemoryRequirements &requirements, VkMemoryPropertyFlags flags)
{
	VkPhysicalDeviceMemoryProperties memory;
	vkGetPhysicalDeviceMemoryProperties(m_PhysicalDevice, &memory);
	VkMemoryAllocateInfo info = {};
	info.sType = VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO;
	info.allocationSize = requirements.size;
	const auto fits = [&](u32 type) {
		return (requirements.memoryTypeBits >> type & 1) != 0 &&
		       (memory.memoryTypes[type].propertyFlags & flags) == flags;
	};
	while (info.memoryTypeIndex < memory.memoryTypeCount && !fits(info.memoryTypeIndex))
		++info.memoryTypeIndex;
	Require(info.memoryTypeIndex < memory.memoryTypeCount, "The device has no memory of the kind that is needed.");
	VkDeviceMemory block = null;
	Check(vkAllocateMemory(m_Device, &info, null, &block), "vkAllocateMemory");
	return block;
}

SMappedBuffer CVulkanHeadless::CreateMappedBuffer(VkDeviceSize sizeInBytes, VkBufferUsageFlags usage)
{
	SMappedBuffer buffer = {};
	VkBufferCreateInfo info = {};
	info.sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO;
	info.size = sizeInBytes;
	info.usage = usage;
	Check(vkCreateBuffer(m_Device, &info, null, &buffer.m_Buffer), "vkCreateBuffer");
	VkMemoryRequirements requirements;
	vkGetBufferMemoryRequirements(m_Device, buffer.m_Buffer, &requirements);
	buffer.m_Memory =
		Allocate(requirements, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT);
	Check(vkBindBufferMemory(m_Device, buffer.m_Buffer, buffer.m_Memory, 0), "vkBindBufferMemory");
	Check(vkMapMemory(m_Device, buffer.m_Memory, 0, VK_WHOLE_SIZE, 0, &buffer.m_Data), "vkMapMemory");
	m_Buffers.push_back(buffer);
	return buffer;
}

void CVulkanHeadless::CreateImage()
{
	VkImageCreateInfo info = {};
	info.sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO;
	info.imageType = VK_IMAGE_TYPE_2D;
	info.format = kFormat;
	info.extent = {m_Extent.width, m_Extent.height, 1};
	info.mipLevels = 1;
	info.arrayLayers = 1;
	info.samples = VK_SAMPLE_COUNT_1_BIT;
	info.usage = VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT;
	Check(vkCreateImage(m_Device, &info, null, &m_Image), "vkCreateImage");
	VkMemoryRequirements requirements;
	vkGetImageMemoryRequirements(m_Device, m_Image, &requirements);
	m_ImageMemory = Allocate(requirements, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT);
	Check(vkBindImageMemory(m_Device, m_Image, m_ImageMemory, 0), "vkBindImageMemory");

	VkImageViewCreateInfo view = {};
	view.sType = VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO;
	view.image = m_Image;
	view.viewType = VK_IMAGE_VIEW_TYPE_2D;
	view.format = kFormat;
	view.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
	Check(vkCreateImageView(m_Device, &view, null, &m_ImageView), "vkCreateImageView");
}

VkShaderModule CVulkanHeadless::CreateShader(const u32 *code, size_t sizeInBytes)
{
	VkShaderModuleCreateInfo info = {};
	info.sType = VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO;
	info.codeSize = sizeInBytes;
	info.pCode = code;
	VkShaderModule shader = null;
	Check(vkCreateShaderModule(m_Device, &info, null, &shader), "vkCreateShaderModule");
	return shader;
}

// Triangles of either winding over the whole image, blended over what is there.
void CVulkanHeadless::CreatePipeline(const SShaders &shaders)
{
	VkPipelineLayoutCreateInfo layout = {};
	layout.sType = VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO;
	Check(vkCreatePipelineLayout(m_Device, &layout, null, &m_PipelineLayout), "vkCreatePipelineLayout");

	VkPipelineShaderStageCreateInfo stages[2] = {};
	for (VkPipelineShaderStageCreateInfo &stage : stages)
	{
		stage.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO;
		stage.pName = "main";
	}
	stages[0].stage = VK_SHADER_STAGE_VERTEX_BIT;
	stages[0].module = CreateShader(shaders.m_Vertex, shaders.m_VertexSizeInBytes);
	stages[1].stage = VK_SHADER_STAGE_FRAGMENT_BIT;
	stages[1].module = CreateShader(shaders.m_Fragment, shaders.m_FragmentSizeInBytes);

	const VkVertexInputBindingDescription binding = {0, sizeof(SVulkanVertex), VK_VERTEX_INPUT_RATE_VERTEX};
	const VkVertexInputAttributeDescription attributes[2] = {
		{0, 0, VK_FORMAT_R32G32_SFLOAT,       offsetof(SVulkanVertex, m_Position)},
		{1, 0, VK_FORMAT_R32G32B32A32_SFLOAT, offsetof(SVulkanVertex, m_Colour)  },
	};
	VkPipelineVertexInputStateCreateInfo vertexInput = {};
	vertexInput.sType = VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO;
	vertexInput.vertexBindingDescriptionCount = 1;
	vertexInput.pVertexBindingDescriptions = &binding;
	vertexInput.vertexAttributeDescriptionCount = 2;
	vertexInput.pVertexAttributeDescriptions = attributes;
	VkPipelineInputAssemblyStateCreateInfo assembly = {};
	assembly.sType = VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO;
	assembly.topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST;

	const VkViewport viewportArea = {0, 0, float(m_Extent.width), float(m_Extent.height), 0, 1};
	const VkRect2D scissor = {
		{0, 0},
		m_Extent,
	};
	VkPipelineViewportStateCreateInfo viewport = {};
	viewport.sType = VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO;
	viewport.viewportCount = 1;
	viewport.pViewports = &viewportArea;
	viewport.scissorCount = 1;
	viewport.pScissors = &scissor;
	VkPipelineRasterizationStateCreateInfo rasterization = {};
	rasterization.sType = VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO;
	rasterization.lineWidth = 1;
	VkPipelineMultisampleStateCreateInfo multisample = {};
	multisample.sType = VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO;
	multisample.rasterizationSamples = VK_SAMPLE_COUNT_1_BIT;

	VkPipelineColorBlendAttachmentState over = {};
	over.blendEnable = VK_TRUE;
	over.srcColorBlendFactor = VK_BLEND_FACTOR_SRC_ALPHA;
	over.dstColorBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA;
	over.srcAlphaBlendFactor = VK_BLEND_FACTOR_ONE;
	over.dstAlphaBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA;
	over.colorWriteMask =
		VK_COLOR_COMPONENT_R_BIT | VK_COLOR_COMPONENT_G_BIT | VK_COLOR_COMPONENT_B_BIT | VK_COLOR_COMPONENT_A_BIT;
	VkPipelineColorBlendStateCreateInfo blend = {};
	blend.sType = VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO;
	blend.attachmentCount = 1;
	blend.pAttachments = &over;

	VkPipelineRenderingCreateInfo rendering = {};
	rendering.sType = VK_STRUCTURE_TYPE_PIPELINE_RENDERING_CREATE_INFO;
	rendering.colorAttachmentCount = 1;
	rendering.pColorAttachmentFormats = &kFormat;
	VkGraphicsPipelineCreateInfo info = {};
	info.sType = VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO;
	info.pNext = &rendering;
	info.stageCount = 2;
	info.pStages = stages;
	info.pVertexInputState = &vertexInput;
	info.pInputAssemblyState = &assembly;
	info.pViewportState = &viewport;
	info.pRasterizationState = &rasterization;
	info.pMultisampleState = &multisample;
	info.pColorBlendState = &blend;
	info.layout = m_PipelineLayout;
	Check(vkCreateGraphicsPipelines(m_Device, null, 1, &info, null, &m_Pipeline), "vkCreateGraphicsPipelines");
	for (const VkPipelineShaderStageCreateInfo &stage : stages)
		vkDestroyShaderModule(m_Device, stage.module, null);
}

void CVulkanHeadless::ImageBarrier(VkImageLayout from,
	VkImageLayout to,
	VkPipelineStageFlags2 firstStage,
	VkAccessFlags2 firstAccess,
	VkPipelineStageFlags2 secondStage,
	VkAccessFlags2 secondAccess)
{
	VkImageMemoryBarrier2 barrier = {};
	barrier.sType = VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER_2;
	barrier.srcStageMask = firstStage;
	barrier.srcAccessMask = firstAccess;
	barrier.dstStageMask = secondStage;
	barrier.dstAccessMask = secondAccess;
	barrier.oldLayout = from;
	barrier.newLayout = to;
	barrier.srcQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
	barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
	barrier.image = m_Image;
	barrier.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
	VkDependencyInfo dependency = {};
	dependency.sType = VK_STRUCTURE_TYPE_DEPENDENCY_INFO;
	dependency.imageMemoryBarrierCount = 1;
	dependency.pImageMemoryBarriers = &barrier;
	vkCmdPipelineBarrier2(m_Commands, &dependency);
}

void CVulkanHeadless::BeginDrawing()
{
	VkCommandBufferBeginInfo begin = {};
	begin.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO;
	begin.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
	Check(vkBeginCommandBuffer(m_Commands, &begin), "vkBeginCommandBuffer");
	ImageBarrier(VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL, VK_PIPELINE_STAGE_2_NONE,
		VK_ACCESS_2_NONE, VK_PIPELINE_STAGE_2_COLOR_ATTACHMENT_OUTPUT_BIT,
		VK_ACCESS_2_COLOR_ATTACHMENT_READ_BIT | VK_ACCESS_2_COLOR_ATTACHMENT_WRITE_BIT);

	VkRenderingAttachmentInfo attachment = {};
	attachment.sType = VK_STRUCTURE_TYPE_RENDERING_ATTACHMENT_INFO;
	attachment.imageView = m_ImageView;
	attachment.imageLayout = VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL;
	attachment.loadOp = VK_ATTACHMENT_LOAD_OP_CLEAR;
	attachment.storeOp = VK_ATTACHMENT_STORE_OP_STORE;
	attachment.clearValue.color.float32[3] = 1.0f;
	VkRenderingInfo rendering = {};
	rendering.sType = VK_STRUCTURE_TYPE_RENDERING_INFO;
	rendering.renderArea = {
		{0, 0},
		m_Extent,
	};
	rendering.layerCount = 1;
	rendering.colorAttachmentCount = 1;
	rendering.pColorAttachments = &attachment;
	vkCmdBeginRendering(m_Commands, &rendering);
	vkCmdBindPipeline(m_Commands, VK_PIPELINE_BIND_POINT_GRAPHICS, m_Pipeline);
}

std::vector<u8> CVulkanHeadless::EndDrawing()
{
	vkCmdEndRendering(m_Commands);
	ImageBarrier(VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL,
		VK_PIPELINE_STAGE_2_COLOR_ATTACHMENT_OUTPUT_BIT, VK_ACCESS_2_COLOR_ATTACHMENT_WRITE_BIT,
		VK_PIPELINE_STAGE_2_COPY_BIT, VK_ACCESS_2_TRANSFER_READ_BIT);
	VkBufferImageCopy region = {};
	region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
	region.imageExtent = {m_Extent.width, m_Extent.height, 1};
	vkCmdCopyImageToBuffer(m_Commands, m_Image, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, m_Readback.m_Buffer, 1, &region);
	VkMemoryBarrier2 toHost = {};
	toHost.sType = VK_STRUCTURE_TYPE_MEMORY_BARRIER_2;
	toHost.srcStageMask = VK_PIPELINE_STAGE_2_COPY_BIT;
	toHost.srcAccessMask = VK_ACCESS_2_TRANSFER_WRITE_BIT;
	toHost.dstStageMask = VK_PIPELINE_STAGE_2_HOST_BIT;
	toHost.dstAccessMask = VK_ACCESS_2_HOST_READ_BIT;
	VkDependencyInfo dependency = {};
	dependency.sType = VK_STRUCTURE_TYPE_DEPENDENCY_INFO;
	dependency.memoryBarrierCount = 1;
	dependency.pMemoryBarriers = &toHost;
	vkCmdPipelineBarrier2(m_Commands, &dependency);
	Check(vkEndCommandBuffer(m_Commands), "vkEndCommandBuffer");

	VkSubmitInfo submit = {};
	submit.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO;
	submit.commandBufferCount = 1;
	submit.pCommandBuffers = &m_Commands;
	Check(vkQueueSubmit(m_Queue, 1, &submit, null), "vkQueueSubmit");
	Check(vkQueueWaitIdle(m_Queue), "vkQueueWaitIdle");

	const u8 *const pixels = static_cast<const u8 *>(m_Readback.m_Data);
	return std::vector<u8>(pixels, pixels + size_t(m_Extent.width) * m_Extent.height * kBytesPerPixel);
}
} // namespace Minimal
