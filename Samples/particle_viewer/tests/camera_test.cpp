// Cameras: what is upwards, and the ways in which a viewer moves.

#include "camera.h"
#include "orbit.h"
#include <cmath>
#include <gtest/gtest.h>

using namespace Viewer;

namespace
{
constexpr EUp kUps[] = {EUp::Y, EUp::MinusY, EUp::Z, EUp::MinusZ, EUp::X, EUp::MinusX};
const CFloat3 kAxes[] = {CFloat3(0.0f, 1.0f, 0.0f), CFloat3(0.0f, -1.0f, 0.0f), CFloat3(0.0f, 0.0f, 1.0f),
	CFloat3(0.0f, 0.0f, -1.0f), CFloat3(1.0f, 0.0f, 0.0f), CFloat3(-1.0f, 0.0f, 0.0f)};

SCamera SceneCamera()
{
	SCamera camera;
	camera.m_Position = CFloat3(1.0f, 2.0f, 4.0f);
	camera.m_Target = CFloat3(0.5f, 0.25f, -0.5f);
	return camera;
}

void ExpectNear(const CFloat3 &a, const CFloat3 &b)
{
	for (u32 axis = 0; axis < 3; ++axis)
		EXPECT_NEAR(a[axis], b[axis], 1e-5f) << "axis " << axis;
}

// Where a point is on a square screen.
CFloat3 OnScreen(const SCamera &camera, const CFloat3 &point)
{
	const SClipPoint clip = Projected(ViewTransform(camera, 1.0f), point);
	return CFloat3(clip.m_X / clip.m_W, clip.m_Y / clip.m_W, clip.m_W);
}

float Distance(const SCamera &camera)
{
	const CFloat3 offset = Subtract(camera.m_Position, camera.m_Target);
	return std::sqrt(Dot(offset, offset));
}
} // namespace

TEST(Camera, UpNames_AreFoundAgain)
{
	EUp up = EUp::Y;
	for (const EUp each : kUps)
	{
		EXPECT_EQ(up, each);
		EXPECT_EQ(FindUp(UpName(each)), each);
		up = NextUp(up);
	}
	EXPECT_EQ(up, EUp::Y);
	EXPECT_FALSE(FindUp("").has_value());
	EXPECT_FALSE(FindUp("w").has_value());
}

// The axis points upwards on the screen, and nothing is mirrored.
TEST(Camera, Upright_HasTheAxisUpwards)
{
	for (u32 i = 0; i < 6; ++i)
	{
		SCOPED_TRACE(UpName(kUps[i]));
		SCamera scene = SceneCamera();
		scene.m_Target = CFloat3();
		const SCamera camera = Upright(scene, kUps[i]);
		ExpectNear(camera.m_Up, kAxes[i]);
		EXPECT_GT(OnScreen(camera, kAxes[i]).y(), 0.1f);
		EXPECT_NEAR(OnScreen(camera, kAxes[i]).x(), 0.0f, 1e-6f);
		EXPECT_NEAR(Distance(camera), Distance(scene), 1e-5f);
		const SViewTransform view = ViewTransform(camera, 1.0f);
		ExpectNear(Cross(view.m_Right, view.m_Up), Normalized(Subtract(camera.m_Position, camera.m_Target)));
	}
}

// A picture as wide as high, and one twice as high, show as much from left to right.
TEST(Camera, HighPicture_ShowsTheWidthOfASquare)
{
	SCamera camera;
	camera.m_Position = CFloat3(0.0f, 0.0f, 10.0f);
	const CFloat3 point(2.0f, 1.0f, 0.0f);
	const SClipPoint inSquare = Projected(ViewTransform(camera, 1.0f), point);
	const SClipPoint inHigh = Projected(ViewTransform(camera, 0.5f), point);
	const SClipPoint inWide = Projected(ViewTransform(camera, 2.0f), point);
	EXPECT_FLOAT_EQ(inHigh.m_X, inSquare.m_X);
	EXPECT_FLOAT_EQ(inHigh.m_Y, 0.5f * inSquare.m_Y);
	EXPECT_FLOAT_EQ(inWide.m_X, 0.5f * inSquare.m_X);
	EXPECT_FLOAT_EQ(inWide.m_Y, inSquare.m_Y);
}

TEST(Camera, LookAlongUp_StillHasAPicture)
{
	for (u32 axis = 0; axis < 3; ++axis)
	{
		SCamera camera;
		camera.m_Up = CFloat3();
		camera.m_Up[axis] = 1.0f;
		camera.m_Position = CFloat3();
		camera.m_Position[axis] = 5.0f;
		const SViewTransform view = ViewTransform(camera, 1.0f);
		EXPECT_FLOAT_EQ(Dot(view.m_Right, view.m_Right), 1.0f);
		EXPECT_FLOAT_EQ(Dot(view.m_Up, view.m_Up), 1.0f);
		EXPECT_FLOAT_EQ(Dot(view.m_Up, view.m_Right), 0.0f);
		SOrbit turned;
		turned.m_TurnSteps = 100;
		EXPECT_EQ(Moved(camera, turned).m_Position.x(), Moved(camera, turned).m_Position.x()); // a number
	}
}

// One that is placed looks from where it stands, whatever is up.
TEST(Camera, PlacedCamera_OnlyTurnsItsUp)
{
	SCamera camera;
	camera.m_Position = CFloat3(1.0f, 2.0f, 3.0f);
	camera.m_IsPlaced = true;
	const SCamera upright = Upright(camera, EUp::Z);
	EXPECT_EQ(upright.m_Position.y(), 2.0f);
	EXPECT_EQ(upright.m_Up.z(), 1.0f);
}

TEST(Orbit, Nothing_IsTheScenesOwnCamera)
{
	const SCamera camera = Moved(SceneCamera(), SOrbit());
	EXPECT_EQ(camera.m_Position.x(), 1.0f);
	EXPECT_EQ(camera.m_Target.z(), -0.5f);
}

TEST(Orbit, Turns_KeepDistanceAndTargetWhateverIsUp)
{
	for (const EUp up : kUps)
	{
		SCOPED_TRACE(UpName(up));
		const SCamera scene = Upright(SceneCamera(), up);
		SOrbit orbit;
		orbit.m_TurnSteps = 360; // a quarter of a turn
		orbit.m_TiltSteps = -20;
		const SCamera camera = Moved(scene, orbit);
		ExpectNear(camera.m_Target, scene.m_Target);
		EXPECT_NEAR(Distance(camera), Distance(scene), 1e-5f);
		const SCamera turned = Upright(Moved(SceneCamera(), orbit), up);
		ExpectNear(camera.m_Position, turned.m_Position);
	}
}

// What is under the pointer stays under it.
TEST(Orbit, Pan_MovesTheTargetOnTheScreen)
{
	const SCamera scene = Upright(SceneCamera(), EUp::Z);
	SOrbit orbit;
	orbit.m_Shift = ShiftAlong(scene, -0.25f * 2.0f * scene.m_TanHalfFov, 0.125f * 2.0f * scene.m_TanHalfFov, 0.0f);
	const CFloat3 at = OnScreen(Moved(scene, orbit), scene.m_Target);
	EXPECT_NEAR(at.x(), 0.5f, 1e-4f);
	EXPECT_NEAR(at.y(), -0.25f, 1e-4f);
}

TEST(Orbit, Fly_GoesForwardsAndKeepsTheDistance)
{
	const SCamera scene = SceneCamera();
	SOrbit orbit;
	orbit.m_Shift = ShiftAlong(scene, 0.0f, 0.0f, 0.25f);
	const SCamera camera = Moved(scene, orbit);
	EXPECT_NEAR(Distance(camera), Distance(scene), 1e-5f);
	const CFloat3 at = OnScreen(camera, scene.m_Target);
	EXPECT_NEAR(at.x(), 0.0f, 1e-4f);
	EXPECT_NEAR(at.z(), 0.75f * Distance(scene), 1e-4f);
}
