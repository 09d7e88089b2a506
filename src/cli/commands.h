// The commands. Each prints its answer to standard output and returns the exit status of the program.
#pragma once

#include "cli/console.h"
#include "cli/options.h"

namespace vimbo::cli {

int RunInfo(const InfoOptions& options, Console& console);
int RunConvert(const ConvertOptions& options, Console& console);
int RunRender(const RenderOptions& options, Console& console);
int RunVerify(const VerifyOptions& options, Console& console);
int RunFormats(const FormatsOptions& options, Console& console);
int RunSettings(const SettingsOptions& options, Console& console);

/// The whole program; takes what main gets and returns its exit status.
int RunProgram(int argc, const char* const* argv) noexcept;

} // namespace vimbo::cli
