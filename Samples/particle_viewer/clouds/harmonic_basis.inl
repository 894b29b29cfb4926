// Text that is GLSL as well as C++, so that tests check what shaders run: VIEWER_SHADER_CODE makes a string of it, or
// nothing but itself.
//
// The real spherical harmonics up to degree 3 in a direction of length 1, with the signs and in the order in which
// files of splats have them: 0 is the colour's own place, then -m to m of each degree. Each is a polynomial in x, y, z.
VIEWER_SHADER_CODE(void HarmonicBasis(float x, float y, float z, out float basis[16])
{
	float xx = x * x;
	float yy = y * y;
	float zz = z * z;
	basis[0] = 1.0f;
	basis[1] = -0.48860252f * y;
	basis[2] = 0.48860252f * z;
	basis[3] = -0.48860252f * x;
	basis[4] = 1.0925485f * x * y;
	basis[5] = -1.0925485f * y * z;
	basis[6] = 0.31539157f * (2.0f * zz - xx - yy);
	basis[7] = -1.0925485f * x * z;
	basis[8] = 0.54627424f * (xx - yy);
	basis[9] = -0.59004360f * y * (3.0f * xx - yy);
	basis[10] = 2.8906114f * x * y * z;
	basis[11] = -0.45704580f * y * (4.0f * zz - xx - yy);
	basis[12] = 0.37317634f * z * (2.0f * zz - 3.0f * xx - 3.0f * yy);
	basis[13] = -0.45704580f * x * (4.0f * zz - xx - yy);
	basis[14] = 1.4453057f * z * (xx - yy);
	basis[15] = -0.59004360f * x * (xx - 3.0f * yy);
})
