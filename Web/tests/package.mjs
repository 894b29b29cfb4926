// The package that Tools/web.sh has built, for the tests.

export const kBuild = process.env.VEXMOOR_WEB_BUILD;
if (kBuild === undefined) throw new Error("VEXMOOR_WEB_BUILD is not set: run ./Tools/web.sh --test");
export const { load } = await import(`${kBuild}/package/vexmoor.js`);
