#ifndef ORBTEX_CLI_CONVERT_BATCH_H
#define ORBTEX_CLI_CONVERT_BATCH_H

// The files of an orbtex convert run: one IN to OUT, or every IN (a folder
// standing for its image and texture files) to DIR/NAME.EXT on several
// threads. Outputs that would write over an input, or over each other, are
// refused; each file that fails is told on its own line while the others go
// on; the progress line and --verbose's lines follow the work.

#include "ConvertOptions.h"

namespace cli
{

// Runs the conversions the options ask for; returns the exit status, a
// failure if any file failed.
int RunConversions(const ConvertOptions& options);

} // namespace cli

#endif
