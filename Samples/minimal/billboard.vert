#version 450

layout(location = 0) in vec2 position;
layout(location = 1) in vec4 colour;
layout(location = 0) flat out vec4 fragmentColour;

void main()
{
	gl_Position = vec4(position, 0.0, 1.0);
	fragmentColour = colour;
}
