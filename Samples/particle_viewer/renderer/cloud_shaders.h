#pragma once

// The shaders of points and splats. A splat is a Gaussian in space, which a camera sees as an ellipse. It is drawn as a
// quad whose opacity falls off from its middle. Colours are blended as colours of the screen and not as light, because
// splats are trained for that.

namespace Viewer
{
/// To be followed by the rest of the vertex shader.
inline constexpr const char *kCloudVertexShaderStart = "#version 450 core\n";

/// Without its start and HarmonicBasis, of harmonics.h.
inline constexpr const char *kCloudVertexShader = R"(
layout(std430, binding = 0) readonly buffer Positions { float positions[]; };
layout(std430, binding = 1) readonly buffer Colours { uint colours[]; };
layout(std430, binding = 2) readonly buffer Shapes { uvec4 shapes[]; };
layout(std430, binding = 3) readonly buffer Harmonics { uint words[]; } harmonics[3]; // red, green, blue
uniform mat4 worldToClip;
uniform vec3 eye;
uniform int harmonicWords; // of a splat in each of the three; 0: its colour is the same from all sides
uniform vec2 halfPicture; // in pixels
uniform float pointRadius; // 0: there are shapes
out SSplat
{
	vec4 colour;
	vec4 axes;    // of the ellipse where it has faded out, in clip space
	float extent; // in standard deviations
} splat;

// Columns: the axes of the Gaussian, as long as its standard deviations.
mat3 Axes(uvec4 shape)
{
	vec2 wx = unpackSnorm2x16(shape.x);
	vec2 yz = unpackSnorm2x16(shape.y);
	vec3 scales = exp(vec3(unpackUnorm2x16(shape.z), unpackUnorm2x16(shape.w).x) * 64.0 - 32.0);
	float w = wx.x, x = wx.y, y = yz.x, z = yz.y;
	return mat3(scales.x * vec3(1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y + w * z), 2.0 * (x * z - w * y)),
		scales.y * vec3(2.0 * (x * y - w * z), 1.0 - 2.0 * (x * x + z * z), 2.0 * (y * z + w * x)),
		scales.z * vec3(2.0 * (x * z + w * y), 2.0 * (y * z - w * x), 1.0 - 2.0 * (x * x + y * y)));
}

// As seen from the eye. A word has two half floats, which weigh two of the basis.
vec3 Colour(vec3 position, vec3 fromAllSides)
{
	if (harmonicWords == 0)
		return fromAllSides;
	vec3 direction = normalize(position - eye);
	float basis[16];
	HarmonicBasis(direction.x, direction.y, direction.z, basis);
	vec3 sum = vec3(0.0);
	for (int i = 0; i < harmonicWords; ++i)
	{
		int at = gl_VertexID * harmonicWords + i;
		vec2 pair = vec2(basis[2 * i], basis[2 * i + 1]);
		sum += vec3(dot(pair, unpackHalf2x16(harmonics[0].words[at])), dot(pair, unpackHalf2x16(harmonics[1].words[at])),
			dot(pair, unpackHalf2x16(harmonics[2].words[at])));
	}
	return clamp(sum, 0.0, 1.0);
}

void main()
{
	const float kNearest = 0.1;
	const float kBeyondEdge = 1.3; // what is farther out is projected as if it stood there: the linear map ends
	const float kBlur = 0.3;       // variance in pixels: a splat is never smaller than the grid that shows it
	const float kLongest = 1024.0; // pixels

	vec3 position = vec3(positions[3 * gl_VertexID], positions[3 * gl_VertexID + 1], positions[3 * gl_VertexID + 2]);
	splat.colour = unpackUnorm4x8(colours[gl_VertexID]);
	splat.colour.rgb = Colour(position, splat.colour.rgb);
	splat.extent = sqrt(2.0 * log(max(255.0 * splat.colour.a, 1.0))); // where it fades below a step of a screen
	splat.axes = vec4(0.0);
	gl_Position = worldToClip * vec4(position, 1.0);
	if (gl_Position.w < kNearest)
	{
		splat.extent = 0.0;
		return;
	}

	// What a small step in space is on the screen, in pixels.
	mat4 rows = transpose(worldToClip);
	vec2 edge = clamp(gl_Position.xy / gl_Position.w, -kBeyondEdge, kBeyondEdge);
	vec3 toX = halfPicture.x / gl_Position.w * (rows[0].xyz - rows[3].xyz * edge.x);
	vec3 toY = halfPicture.y / gl_Position.w * (rows[1].xyz - rows[3].xyz * edge.y);

	mat3 axes = pointRadius > 0.0 ? mat3(pointRadius) : Axes(shapes[gl_VertexID]);
	vec3 x = toX * axes;
	vec3 y = toY * axes;
	float xx = dot(x, x) + kBlur;
	float xy = dot(x, y);
	float yy = dot(y, y) + kBlur;

	// The covariance's eigenvectors are the axes of the ellipse, and its eigenvalues their squared lengths.
	float middle = 0.5 * (xx + yy);
	float spread = length(vec2(0.5 * (xx - yy), xy));
	vec2 first = abs(xy) > 1e-6 * middle ? normalize(vec2(xy, middle + spread - xx))
	                                     : (xx >= yy ? vec2(1.0, 0.0) : vec2(0.0, 1.0));
	vec2 lengths = min(splat.extent * sqrt(vec2(middle + spread, max(middle - spread, kBlur))), kLongest);
	vec2 toClip = gl_Position.w / halfPicture;
	splat.axes = vec4(first * lengths.x * toClip, vec2(-first.y, first.x) * lengths.y * toClip);
}
)";

inline constexpr const char *kCloudGeometryShader = R"(#version 450 core
layout(points) in;
layout(triangle_strip, max_vertices = 4) out;
in SSplat
{
	vec4 colour;
	vec4 axes;
	float extent;
} splats[];
flat out vec4 colour;
out vec2 deviations;

void main()
{
	vec4 middle = gl_in[0].gl_Position;
	vec2 reach = abs(splats[0].axes.xy) + abs(splats[0].axes.zw);
	if (splats[0].extent == 0.0 || any(greaterThan(abs(middle.xy) - reach, middle.ww)))
		return;
	for (int corner = 0; corner < 4; ++corner)
	{
		vec2 at = vec2(corner & 1, corner >> 1) * 2.0 - 1.0;
		gl_Position = middle + vec4(splats[0].axes.xy * at.x + splats[0].axes.zw * at.y, 0.0, 0.0);
		gl_PrimitiveID = gl_PrimitiveIDIn;
		colour = splats[0].colour;
		deviations = at * splats[0].extent;
		EmitVertex();
	}
	EndPrimitive();
}
)";

inline constexpr const char *kCloudFragmentShader = R"(#version 450 core
flat in vec4 colour;
in vec2 deviations;
out vec4 light;

vec4 Coloured(vec4 light);

void main()
{
	float alpha = colour.a * exp(-0.5 * dot(deviations, deviations));
	if (alpha * 255.0 < 1.0)
		discard;
	light = Coloured(vec4(colour.rgb * alpha, alpha));
}
)";
} // namespace Viewer
