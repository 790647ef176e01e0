// The scene's frame rate, process-wide.
#pragma once

namespace vx {

inline constexpr double kTimeSameTolerance = 0.0001;  // two times closer than this are one
inline constexpr double kTimeLineStart = -33600000.0;
inline constexpr double kTimeLineEnd = 33600000.0;

// Frames per second; 24 until set.
double TimeGlobalFPS() noexcept;
// Sets the frame rate; raises a failure (rc::bad_argument) unless fps is finite and positive.
void TimeSetGlobalFPS(double fps);

}  // namespace vx
