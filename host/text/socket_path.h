// Where kivod listens and kivosh asks, unless told otherwise.
#pragma once

namespace host_text {

inline constexpr const char *kDefaultSocketPath = "/run/kivo/kivod.sock";

}  // namespace host_text
