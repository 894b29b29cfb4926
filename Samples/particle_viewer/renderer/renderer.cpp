// OpenGL 4.5, direct state access, entry points by libepoxy.

#include "renderer.h"

#include "kr_profiler.h"

#include "cloud_shaders.h"
#include "failure.h"
#include "harmonics.h"
#include "shaders.h"
#include "sprites.h"
#include <algorithm>
#include <cmath>
#include <epoxy/gl.h>
#include <string>

namespace Viewer
{
namespace
{
	constexpr u32 kEdgeSamples = 2;

	GLuint CompileShader(GLenum stage, const char *source)
	{
		const GLuint shader = glCreateShader(stage);
		glShaderSource(shader, 1, &source, nullptr);
		glCompileShader(shader);
		GLint compiled = GL_FALSE;
		glGetShaderiv(shader, GL_COMPILE_STATUS, &compiled);
		if (compiled == GL_FALSE)
			throw CFailure("The graphics driver does not compile the viewer's shaders.");
		return shader;
	}

	static_assert(kRampLength == 6, "the length that the shaders give it");

	SProgram WithUniforms(GLuint program)
	{
		static const struct
		{
			const char *m_Name;
			s32 SProgram::*m_Location;
		} kUniforms[] = {
			{"worldToClip",   &SProgram::m_WorldToClip  },
			{"right",         &SProgram::m_Right        },
			{"up",            &SProgram::m_Up           },
			{"eye",           &SProgram::m_Eye          },
			{"halfPicture",   &SProgram::m_HalfPicture  },
			{"pointRadius",   &SProgram::m_PointRadius  },
			{"harmonicWords", &SProgram::m_HarmonicWords},
			{"colouring",     &SProgram::m_Colouring    },
			{"triangleCount", &SProgram::m_TriangleCount},
			{"firstTriangle", &SProgram::m_FirstTriangle},
			{"samples",       &SProgram::m_Samples      },
			{"mostLayers",    &SProgram::m_MostLayers   },
			{"screenColours", &SProgram::m_ScreenColours},
		};
		SProgram result;
		result.m_Program = program;
		for (const auto &uniform : kUniforms)
			result.*uniform.m_Location = glGetUniformLocation(program, uniform.m_Name);
		return result;
	}

	// Every program can ask for the colours of the ramp.
	SProgram LinkProgram(const char *vertexSource, const char *fragmentSource, const char *geometrySource = nullptr)
	{
		const GLuint program = glCreateProgram();
		std::vector<GLuint> shaders = {CompileShader(GL_VERTEX_SHADER, vertexSource),
			CompileShader(GL_FRAGMENT_SHADER, fragmentSource),
			CompileShader(GL_FRAGMENT_SHADER, kColourFragmentShader)};
		if (geometrySource != nullptr)
			shaders.push_back(CompileShader(GL_GEOMETRY_SHADER, geometrySource));
		for (const GLuint shader : shaders)
		{
			glAttachShader(program, shader);
			glDeleteShader(shader);
		}
		glLinkProgram(program);
		GLint linked = GL_FALSE;
		glGetProgramiv(program, GL_LINK_STATUS, &linked);
		if (linked == GL_FALSE)
			throw CFailure("The graphics driver does not link the viewer's shaders.");
		glProgramUniform3fv(program, glGetUniformLocation(program, "ramp"), GLsizei(kRampLength), &kRamp[0].m_Red);
		return WithUniforms(program);
	}

	GLuint CreateTarget(GLuint texture)
	{
		GLuint target = 0;
		glCreateFramebuffers(1, &target);
		glNamedFramebufferTexture(target, GL_COLOR_ATTACHMENT0, texture, 0);
		if (glCheckNamedFramebufferStatus(target, GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
			throw CFailure("The graphics driver cannot draw pictures of this size.");
		return target;
	}

	GLuint CreateTexture(GLenum format, u32 width, u32 height)
	{
		GLuint texture = 0;
		glCreateTextures(GL_TEXTURE_2D, 1, &texture);
		glTextureStorage2D(texture, 1, format, GLsizei(width), GLsizei(height));
		return texture;
	}

	void SetVector(GLuint program, s32 location, const CFloat3 &value)
	{
		glProgramUniform3f(program, location, value.x(), value.y(), value.z());
	}

	void SetCamera(const SProgram &program, const SViewTransform &view, const CFloat3 &eye)
	{
		glProgramUniformMatrix4fv(program.m_Program, program.m_WorldToClip, 1, GL_FALSE, view.m_WorldToClip);
		SetVector(program.m_Program, program.m_Right, view.m_Right);
		SetVector(program.m_Program, program.m_Up, view.m_Up);
		SetVector(program.m_Program, program.m_Eye, eye);
	}

	// As the shaders number colours.
	s32 Colouring(EColour colour)
	{
		return colour == EColour::Order ? 1 : colour == EColour::Overdraw ? 2 : 0;
	}

	struct SVertexBytes
	{
		const void *m_Data;
		u64 m_Size;
	};

	SVertexBytes VertexBytes(const SFrame &frame)
	{
		switch (frame.m_VertexKind)
		{
		case EVertices::Mesh:
			return {frame.m_MeshVertices.Data(), u64(frame.m_MeshVertices.Count()) * sizeof(SMeshVertex)};
		case EVertices::Bands:
			return {frame.m_BandVertices.Data(), u64(frame.m_BandVertices.Count()) * sizeof(SBandVertex)};
		case EVertices::Marks:
			return {frame.m_Marks.Data(), u64(frame.m_Marks.Count()) * sizeof(SMark)};
		default:
			return {frame.m_Billboards.Data(), u64(frame.m_Billboards.Count()) * sizeof(SBillboard)};
		}
	}

	// Points over surfaces: as large as it takes to close them. Splats have sizes of their own.
	float PointRadius(const SPointCloud &cloud)
	{
		constexpr float kLargest = 0.02f;
		return cloud.m_Shapes.empty() ? std::min(kLargest, 1.0f / std::sqrt(float(cloud.m_Positions.size()))) : 0.0f;
	}

	void RequireNoError()
	{
		if (glGetError() != GL_NO_ERROR)
			throw CFailure("The graphics driver fails to draw, perhaps for want of memory.");
	}
} // namespace

CRenderer::CRenderer(u32 width, u32 height)
{
	GLint64 largestBlock = 0;
	glGetInteger64v(GL_MAX_SHADER_STORAGE_BLOCK_SIZE, &largestBlock);
	m_MaxVertexBufferSize = u64(largestBlock);

	m_BackgroundProgram = LinkProgram(kFullScreenVertexShader, kBackgroundFragmentShader);
	m_BillboardProgram = LinkProgram(kBillboardVertexShader, kBillboardFragmentShader);
	m_MeshProgram = LinkProgram(kMeshVertexShader, kMeshFragmentShader);
	m_BandProgram = LinkProgram(kBandVertexShader, kBandFragmentShader);
	m_MarkProgram = LinkProgram(kMarkVertexShader, kMarkFragmentShader);
	const std::string cloudVertexShader =
		std::string(kCloudVertexShaderStart) + kHarmonicBasisCode + kCloudVertexShader;
	m_CloudProgram = LinkProgram(cloudVertexShader.c_str(), kCloudFragmentShader, kCloudGeometryShader);
	m_ResolveProgram = LinkProgram(kFullScreenVertexShader, kResolveFragmentShader);
	glCreateVertexArrays(1, &m_EmptyVertexArray);
	CreateSprites();
	SetSize(width, height);
}

CRenderer::~CRenderer()
{
	for (const SProgram *const program : {&m_BackgroundProgram, &m_BillboardProgram, &m_MeshProgram, &m_BandProgram,
			 &m_MarkProgram, &m_CloudProgram, &m_ResolveProgram})
		glDeleteProgram(program->m_Program);
	const GLuint targets[] = {m_LightTarget, m_PictureTarget, m_KeptTarget};
	glDeleteFramebuffers(3, targets);
	const GLuint textures[] = {m_LightTexture, m_PictureTexture, m_KeptTexture, m_Sprites};
	glDeleteTextures(4, textures);
	glDeleteBuffers(1, &m_VertexBuffer);
	glDeleteVertexArrays(1, &m_EmptyVertexArray);
}

void CRenderer::SetSize(u32 width, u32 height)
{
	if (width == m_Width && height == m_Height)
		return;
	GLint largest = 0;
	glGetIntegerv(GL_MAX_TEXTURE_SIZE, &largest);
	if (std::max(width, height) * kEdgeSamples > u32(largest))
		throw CFailure("The graphics driver draws pictures of at most " + std::to_string(u32(largest) / kEdgeSamples) +
					   " pixels a side.");
	m_Width = width;
	m_Height = height;
	m_Samples = 0;
	glDeleteFramebuffers(1, &m_PictureTarget);
	glDeleteTextures(1, &m_PictureTexture);
	m_PictureTexture = CreateTexture(GL_RGBA8, m_Width, m_Height);
	m_PictureTarget = CreateTarget(m_PictureTexture);
	glDeleteFramebuffers(1, &m_KeptTarget);
	glDeleteTextures(1, &m_KeptTexture);
	m_KeptTarget = m_KeptTexture = 0;
}

const SProgram &CRenderer::ParticleProgram() const
{
	switch (m_VertexKind)
	{
	case EVertices::Mesh:
		return m_MeshProgram;
	case EVertices::Bands:
		return m_BandProgram;
	case EVertices::Marks:
		return m_MarkProgram;
	case EVertices::Cloud:
		return m_CloudProgram;
	default:
		return m_BillboardProgram;
	}
}

void CRenderer::CreateTargets()
{
	const bool hasEdges =
		m_VertexKind == EVertices::Mesh || m_VertexKind == EVertices::Bands || m_VertexKind == EVertices::Marks;
	const u32 samples = hasEdges ? kEdgeSamples : 1;
	if (samples == m_Samples)
		return;
	glDeleteFramebuffers(1, &m_LightTarget);
	glDeleteTextures(1, &m_LightTexture);
	m_LightTexture = CreateTexture(GL_RGBA16F, m_Width * samples, m_Height * samples);
	m_LightTarget = CreateTarget(m_LightTexture);
	m_Samples = samples;
}

void CRenderer::CreateSprites()
{
	const std::vector<u8> texels = PaintSprites();
	const GLsizei side = GLsizei(kSpriteSide);
	glCreateTextures(GL_TEXTURE_2D_ARRAY, 1, &m_Sprites);
	glTextureStorage3D(m_Sprites, 5, GL_R8, side, side, GLsizei(kSpriteCount));
	glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
	glTextureSubImage3D(
		m_Sprites, 0, 0, 0, 0, side, side, GLsizei(kSpriteCount), GL_RED, GL_UNSIGNED_BYTE, texels.data());
	glGenerateTextureMipmap(m_Sprites);
	glTextureParameteri(m_Sprites, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_NEAREST);
	glTextureParameteri(m_Sprites, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
	glTextureParameteri(m_Sprites, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
}

void CRenderer::SetFrame(const SFrame &frame)
{
	VX_PROFILE_SCOPE("Upload");
	m_VertexKind = frame.m_VertexKind;
	const auto [vertices, size] = VertexBytes(frame);
	if (size > m_MaxVertexBufferSize)
		throw CFailure("The graphics driver has no room for so many particles.");
	if (size > m_VertexBufferSize)
	{
		glDeleteBuffers(1, &m_VertexBuffer);
		glCreateBuffers(1, &m_VertexBuffer);
		m_VertexBufferSize = size;
		glNamedBufferStorage(m_VertexBuffer, GLsizeiptr(m_VertexBufferSize), nullptr, GL_DYNAMIC_STORAGE_BIT);
	}
	if (size != 0)
		glNamedBufferSubData(m_VertexBuffer, 0, GLsizeiptr(size), vertices);

	const SViewTransform view = ViewTransform(frame.m_Camera, float(m_Width) / float(m_Height));
	SetCamera(ParticleProgram(), view, frame.m_Camera.m_Position);
	if (m_VertexKind == EVertices::Cloud)
		SetCloud(frame);
	CreateTargets();
}

void CRenderer::SetCloud(const SFrame &frame)
{
	m_Cloud.Set(frame.m_Cloud);
	glProgramUniform2f(
		m_CloudProgram.m_Program, m_CloudProgram.m_HalfPicture, 0.5f * float(m_Width), 0.5f * float(m_Height));
	glProgramUniform1f(m_CloudProgram.m_Program, m_CloudProgram.m_PointRadius, PointRadius(*frame.m_Cloud));
	const u32 degree = frame.m_Cloud->m_HarmonicDegree;
	glProgramUniform1i(
		m_CloudProgram.m_Program, m_CloudProgram.m_HarmonicWords, degree == 0 ? 0 : s32(HarmonicWords(degree)));
}

u8 *CRenderer::MapIndices(u64 sizeInBytes)
{
	VX_PROFILE_SCOPE("Wait for index memory");
	return m_Ring.Begin(sizeInBytes);
}

SDrawn CRenderer::Draw(const std::vector<SDrawCall> &drawCalls)
{
	VX_PROFILE_SCOPE("Draw");
	glBindVertexArray(m_EmptyVertexArray);
	glBindFramebuffer(GL_FRAMEBUFFER, m_LightTarget);
	glViewport(0, 0, GLsizei(m_Width * m_Samples), GLsizei(m_Height * m_Samples));
	if (m_Colour == EColour::Overdraw)
		glClear(GL_COLOR_BUFFER_BIT);
	else
		DrawBackground();
	DrawParticles(drawCalls);
	m_Ring.End();
	if (m_Colour == EColour::Overdraw)
		FindMostLayers();
	Resolve();
	RequireNoError();
	return {m_Ring.Offset(), drawCalls};
}

void CRenderer::DrawBackground()
{
	glDisable(GL_BLEND);
	glUseProgram(m_BackgroundProgram.m_Program);
	glDrawArrays(GL_TRIANGLES, 0, 3);
}

void CRenderer::DrawParticles(const std::vector<SDrawCall> &drawCalls)
{
	glEnable(GL_BLEND);
	// Premultiplied: what lies behind is dimmed, then light is added. Layers just add up.
	glBlendFunc(GL_ONE, m_Colour == EColour::Overdraw ? GL_ONE : GL_ONE_MINUS_SRC_ALPHA);
	const SProgram &program = ParticleProgram();
	glUseProgram(program.m_Program);
	glBindTextureUnit(0, m_Sprites);
	if (m_VertexKind == EVertices::Cloud)
		m_Cloud.Bind();
	else
		glBindBufferBase(GL_SHADER_STORAGE_BUFFER, 0, m_VertexBuffer);
	glVertexArrayElementBuffer(m_EmptyVertexArray, m_Ring.Buffer());

	const bool points = m_VertexKind == EVertices::Cloud; // which a shader makes quads of
	const u32 indicesPerShape = points ? 1 : 3;
	u32 triangleCount = 0;
	for (const SDrawCall &drawCall : drawCalls)
		triangleCount += drawCall.m_IndexCount / indicesPerShape;
	glProgramUniform1i(program.m_Program, program.m_Colouring, Colouring(m_Colour));
	glProgramUniform1i(program.m_Program, program.m_TriangleCount, GLint(triangleCount));

	u32 firstTriangle = 0;
	for (const SDrawCall &drawCall : drawCalls)
	{
		glProgramUniform1i(program.m_Program, program.m_FirstTriangle, GLint(firstTriangle));
		firstTriangle += drawCall.m_IndexCount / indicesPerShape;
		const GLenum type = BytesPerIndex(drawCall.m_IndexType) == sizeof(u16) ? GL_UNSIGNED_SHORT : GL_UNSIGNED_INT;
		const u64 offset = m_Ring.Offset() + drawCall.m_OffsetInBytes;
		glDrawElementsBaseVertex(points ? GL_POINTS : GL_TRIANGLES, GLsizei(drawCall.m_IndexCount), type,
			reinterpret_cast<const void *>(offset), GLint(drawCall.m_BaseVertex));
	}
}

// Half floats, which layers are summed in, count up to 2,048.
void CRenderer::FindMostLayers()
{
	std::vector<float> layers(u64(m_Width) * m_Height * m_Samples * m_Samples);
	glGetTextureImage(m_LightTexture, 0, GL_RED, GL_FLOAT, GLsizei(layers.size() * sizeof(float)), layers.data());
	m_MostLayers = std::max(2u, u32(*std::max_element(layers.begin(), layers.end())));
}

void CRenderer::Resolve()
{
	glDisable(GL_BLEND);
	glBindFramebuffer(GL_FRAMEBUFFER, m_PictureTarget);
	glViewport(0, 0, GLsizei(m_Width), GLsizei(m_Height));
	const SProgram &program = m_ResolveProgram;
	glProgramUniform1i(program.m_Program, program.m_Samples, GLint(m_Samples));
	glProgramUniform1i(program.m_Program, program.m_Colouring, Colouring(m_Colour));
	glProgramUniform1i(program.m_Program, program.m_MostLayers, GLint(m_MostLayers));
	const bool hasScreenColours = m_VertexKind == EVertices::Cloud || m_VertexKind == EVertices::Marks;
	glProgramUniform1i(program.m_Program, program.m_ScreenColours, hasScreenColours ? 1 : 0);
	glUseProgram(program.m_Program);
	glBindTextureUnit(0, m_LightTexture);
	glDrawArrays(GL_TRIANGLES, 0, 3);
}

// Most pictures stand alone, so there is a place for another only when one is kept.
void CRenderer::CreateKept()
{
	if (m_KeptTexture != 0)
		return;
	m_KeptTexture = CreateTexture(GL_RGBA8, m_Width, m_Height);
	m_KeptTarget = CreateTarget(m_KeptTexture);
}

void CRenderer::KeepPicture()
{
	CreateKept();
	const GLint right = GLint(m_Width);
	const GLint top = GLint(m_Height);
	glBlitNamedFramebuffer(
		m_PictureTarget, m_KeptTarget, 0, 0, right, top, 0, 0, right, top, GL_COLOR_BUFFER_BIT, GL_NEAREST);
}

void CRenderer::KeepPicture(const SPicture &picture)
{
	CreateKept();
	glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
	for (u32 y = 0; y < m_Height; ++y) // OpenGL's rows go up
		glTextureSubImage2D(m_KeptTexture, 0, 0, GLint(m_Height - 1 - y), GLsizei(m_Width), 1, GL_RGB, GL_UNSIGNED_BYTE,
			&picture.m_Rgb[u64(y) * m_Width * 3]);
}

void CRenderer::ShowKept(u32 firstColumn, u32 endColumn)
{
	if (firstColumn >= endColumn)
		return;
	const GLint left = GLint(firstColumn);
	const GLint right = GLint(endColumn);
	const GLint top = GLint(m_Height);
	glBlitNamedFramebuffer(
		m_KeptTarget, m_PictureTarget, left, 0, right, top, left, 0, right, top, GL_COLOR_BUFFER_BIT, GL_NEAREST);
}

void CRenderer::ShowPicture()
{
	const GLint right = GLint(m_Width);
	const GLint top = GLint(m_Height);
	glBlitNamedFramebuffer(m_PictureTarget, 0, 0, 0, right, top, 0, 0, right, top, GL_COLOR_BUFFER_BIT, GL_NEAREST);
}

SPicture CRenderer::ReadPicture()
{
	return ReadFramebuffer(m_PictureTarget, m_Width, m_Height);
}

SPicture ReadFramebuffer(u32 framebuffer, u32 width, u32 height)
{
	VX_PROFILE_SCOPE("Read picture back");
	SPicture picture;
	picture.m_Width = width;
	picture.m_Height = height;
	picture.m_Rgb.resize(u64(width) * height * 3);
	glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
	glPixelStorei(GL_PACK_ALIGNMENT, 1);
	glReadPixels(0, 0, GLsizei(width), GLsizei(height), GL_RGB, GL_UNSIGNED_BYTE, picture.m_Rgb.data());
	RequireNoError();

	// OpenGL's rows go up.
	const u64 rowSize = u64(width) * 3;
	for (u32 y = 0; y < height / 2; ++y)
		std::swap_ranges(&picture.m_Rgb[y * rowSize], &picture.m_Rgb[y * rowSize] + rowSize,
			&picture.m_Rgb[(height - 1 - y) * rowSize]);
	return picture;
}

std::vector<u32> CRenderer::ReadIndices(const SDrawn &drawn)
{
	VX_PROFILE_SCOPE("Read indices back");
	std::vector<u32> indices;
	std::vector<u8> bytes;
	for (const SDrawCall &drawCall : drawn.m_DrawCalls)
	{
		const u32 bytesPerIndex = BytesPerIndex(drawCall.m_IndexType);
		bytes.resize(u64(drawCall.m_IndexCount) * bytesPerIndex);
		glGetNamedBufferSubData(m_Ring.Buffer(), GLintptr(drawn.m_OffsetInBytes + drawCall.m_OffsetInBytes),
			GLsizeiptr(bytes.size()), bytes.data());
		for (size_t i = 0; i < bytes.size(); i += bytesPerIndex)
		{
			u32 index = 0;
			for (u32 byte = 0; byte < bytesPerIndex; ++byte)
				index |= u32(bytes[i + byte]) << (8 * byte);
			indices.push_back(drawCall.m_BaseVertex + index);
		}
	}
	RequireNoError();
	return indices;
}
} // namespace Viewer
