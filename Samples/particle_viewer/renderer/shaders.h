#pragma once

// The shaders. Particles are drawn into a buffer of linear light with premultiplied alpha; the last pass maps it to a
// screen's range.

namespace Viewer
{
inline constexpr const char *kFullScreenVertexShader = R"(#version 450 core
out vec2 screen;

void main()
{
	screen = vec2((gl_VertexID & 1) * 4 - 1, (gl_VertexID & 2) * 2 - 1);
	gl_Position = vec4(screen, 0.0, 1.0);
}
)";

// What the colours of particles stand for, apart from light: see EColour. Linked with every shader of particles.
inline constexpr const char *kColourFragmentShader = R"(#version 450 core
uniform int colouring; // 0 light, 1 order, 2 overdraw
uniform vec3 ramp[6];
uniform int firstTriangle;
uniform int triangleCount;

vec3 Ramp(float share)
{
	float at = clamp(share, 0.0, 1.0) * float(ramp.length() - 1);
	int low = min(int(at), ramp.length() - 2);
	return mix(ramp[low], ramp[low + 1], at - float(low));
}

vec4 Coloured(vec4 light)
{
	if (colouring == 1)
		return vec4(Ramp((float(firstTriangle + gl_PrimitiveID) + 0.5) / float(triangleCount)) * light.a, light.a);
	return colouring == 2 ? vec4(1.0) : light;
}
)";

inline constexpr const char *kBackgroundFragmentShader = R"(#version 450 core
in vec2 screen;
out vec4 light;

void main()
{
	vec3 sky = mix(vec3(0.0022, 0.0028, 0.0045), vec3(0.010, 0.013, 0.021), exp(-2.0 * (screen.y + 1.0)));
	light = vec4(sky, 1.0);
}
)";

inline constexpr const char *kBillboardVertexShader = R"(#version 450 core
struct SBillboard
{
	vec4 positionAndRadius;
	vec4 colour;
	vec4 rotationSpriteAndSlimness;
};
layout(std430, binding = 0) readonly buffer Billboards { SBillboard billboards[]; };
uniform mat4 worldToClip;
uniform vec3 right;
uniform vec3 up;
out vec3 sprite;
flat out vec4 colour;

void main()
{
	SBillboard billboard = billboards[gl_VertexID >> 2];
	int corner = gl_VertexID & 3;
	vec2 offset = vec2((corner == 1 || corner == 2) ? 1.0 : -1.0, corner >= 2 ? 1.0 : -1.0);
	vec2 slim = offset * vec2(1.0 - billboard.rotationSpriteAndSlimness.w, 1.0);
	vec2 turned = vec2(dot(billboard.rotationSpriteAndSlimness.xy, vec2(slim.x, -slim.y)),
		dot(billboard.rotationSpriteAndSlimness.yx, slim));
	vec3 side = (right * turned.x + up * turned.y) * billboard.positionAndRadius.w;
	gl_Position = worldToClip * vec4(billboard.positionAndRadius.xyz + side, 1.0);
	sprite = vec3(offset * 0.5 + 0.5, billboard.rotationSpriteAndSlimness.z);
	colour = billboard.colour;
}
)";

inline constexpr const char *kBillboardFragmentShader = R"(#version 450 core
uniform sampler2DArray sprites;
in vec3 sprite;
flat in vec4 colour;
out vec4 light;

vec4 Coloured(vec4 light);

void main()
{
	light = Coloured(colour * texture(sprites, sprite).r);
}
)";

inline constexpr const char *kMeshVertexShader = R"(#version 450 core
struct SMeshVertex
{
	vec4 positionAndShine;
	vec4 colour;
};
layout(std430, binding = 0) readonly buffer Vertices { SMeshVertex vertices[]; };
uniform mat4 worldToClip;
out vec3 position;
out vec4 colour;
flat out float shine;

void main()
{
	SMeshVertex vertex = vertices[gl_VertexID];
	gl_Position = worldToClip * vec4(vertex.positionAndShine.xyz, 1.0);
	position = vertex.positionAndShine.xyz;
	colour = vertex.colour;
	shine = vertex.positionAndShine.w;
}
)";

inline constexpr const char *kBandVertexShader = R"(#version 450 core
struct SBandVertex
{
	vec4 positionAndAcross;
	vec4 directionAndHalfWidth;
	vec4 colour;
};
layout(std430, binding = 0) readonly buffer Vertices { SBandVertex vertices[]; };
uniform mat4 worldToClip;
uniform vec3 eye;
out float across;
out vec4 colour;

void main()
{
	SBandVertex vertex = vertices[gl_VertexID];
	vec3 position = vertex.positionAndAcross.xyz;
	vec3 side = cross(vertex.directionAndHalfWidth.xyz, eye - position);
	side *= vertex.directionAndHalfWidth.w * vertex.positionAndAcross.w / max(length(side), 1e-9);
	gl_Position = worldToClip * vec4(position + side, 1.0);
	across = vertex.positionAndAcross.w;
	colour = vertex.colour;
}
)";

// Round to look at: darker towards soft edges.
inline constexpr const char *kBandFragmentShader = R"(#version 450 core
in float across;
in vec4 colour;
out vec4 light;

vec4 Coloured(vec4 light);

void main()
{
	float round = sqrt(max(1.0 - across * across, 0.0));
	float edge = smoothstep(1.0, 0.85, abs(across));
	light = Coloured(vec4(colour.rgb * (0.04 + 0.96 * round * round), colour.a) * edge);
}
)";

// A thin pane: it lets light through, is lit from both sides, and mirrors the more the flatter it is looked at.
inline constexpr const char *kMeshFragmentShader = R"(#version 450 core
uniform vec3 eye;
in vec3 position;
in vec4 colour;
flat in float shine;
out vec4 light;

vec4 Coloured(vec4 light);

vec3 Surroundings(vec3 direction)
{
	float lamp = pow(max(dot(direction, normalize(vec3(-0.5, 0.75, 0.45))), 0.0), 60.0);
	float window = smoothstep(0.15, 0.6, direction.y) * 0.55;
	return vec3(0.03, 0.035, 0.05) + window * vec3(0.55, 0.75, 1.0) + lamp * vec3(9.0, 8.0, 6.5);
}

void main()
{
	vec3 view = normalize(eye - position);
	vec3 normal = normalize(cross(dFdx(position), dFdy(position)));
	normal = dot(normal, view) < 0.0 ? -normal : normal;
	float facing = dot(normal, view);
	float mirrored = shine * (0.06 + 0.94 * pow(1.0 - facing, 4.0));
	float lit = 0.30 + 0.70 * abs(dot(normal, normalize(vec3(-0.5, 0.75, 0.45))));
	float alpha = mix(colour.a, 1.0, mirrored);
	vec3 mirrorImage = Surroundings(reflect(-view, normal));
	light = Coloured(vec4(colour.rgb * colour.a * lit * (1.0 - mirrored) + mirrorImage * mirrored, alpha));
}
)";

inline constexpr const char *kMarkVertexShader = R"(#version 450 core
struct SMark
{
	uvec4 positionAndColour;
	vec4 offsetAndRoundness;
};
layout(std430, binding = 0) readonly buffer Marks { SMark marks[]; };
uniform mat4 worldToClip;
uniform vec3 right;
uniform vec3 up;
out vec2 roundness;
flat out vec4 colour;

void main()
{
	SMark mark = marks[gl_VertexID];
	vec3 side = right * mark.offsetAndRoundness.x + up * mark.offsetAndRoundness.y;
	gl_Position = worldToClip * vec4(uintBitsToFloat(mark.positionAndColour.xyz) + side, 1.0);
	roundness = mark.offsetAndRoundness.zw;
	colour = unpackUnorm4x8(mark.positionAndColour.w);
}
)";

inline constexpr const char *kMarkFragmentShader = R"(#version 450 core
in vec2 roundness;
flat in vec4 colour;
out vec4 light;

vec4 Coloured(vec4 light);

void main()
{
	if (dot(roundness, roundness) > 1.0)
		discard;
	light = Coloured(vec4(colour.rgb * colour.a, colour.a));
}
)";

// Light gets filmic tone mapping, a darker rim, and noise of half a step against banding: a function of the pixel, so
// that equal light gives equal pictures. Colours of the ramp stay as they are; layers get theirs here.
inline constexpr const char *kResolveFragmentShader = R"(#version 450 core
uniform sampler2D lightBuffer;
uniform int samples;
uniform int colouring;
uniform int mostLayers;
uniform bool screenColours; // what was drawn is no light, but what a screen shows
in vec2 screen;
out vec4 picture;

vec3 Ramp(float share);

vec3 ToneMap(vec3 light)
{
	vec3 mapped = (light * (2.51 * light + 0.03)) / (light * (2.43 * light + 0.59) + 0.14);
	return pow(clamp(mapped, 0.0, 1.0), vec3(1.0 / 2.2));
}

void main()
{
	ivec2 pixel = ivec2(gl_FragCoord.xy);
	float rim = 1.0 - 0.22 * dot(screen, screen);
	vec3 sum = vec3(0.0);
	for (int y = 0; y < samples; ++y)
		for (int x = 0; x < samples; ++x)
		{
			vec3 texel = texelFetch(lightBuffer, pixel * samples + ivec2(x, y), 0).rgb;
			if (colouring == 2)
				sum += texel.r > 0.0 ? Ramp(log2(texel.r) / log2(float(mostLayers))) : vec3(0.0);
			else
				sum += colouring == 1 || screenColours ? texel : ToneMap(rim * texel);
		}
	vec3 mean = sum / float(samples * samples);
	float noise = fract(52.9829189 * fract(dot(vec2(pixel), vec2(0.06711056, 0.00583715))));
	picture = vec4(colouring == 0 ? mean + (noise - 0.5) / 255.0 : mean, 1.0);
}
)";
} // namespace Viewer
