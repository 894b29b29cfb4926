#pragma once

// How a part of the viewer gives up: with one sentence for the user, which main prints before it exits with 2.

#include <stdexcept>

namespace Viewer
{
class CFailure : public std::runtime_error
{
public:
	using std::runtime_error::runtime_error;
};
} // namespace Viewer
