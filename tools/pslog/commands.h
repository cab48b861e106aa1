// Adds the subcommands. Each is described in its file, NAME_command.cpp.

#ifndef PSLOG_COMMANDS_H
#define PSLOG_COMMANDS_H

#include "command.h"

namespace pslog {

void addSummaryCommand(Program& program);
void addFlickersCommand(Program& program);
void addWhyCommand(Program& program);
void addFrameCommand(Program& program);
void addTimelineCommand(Program& program);
void addTopCommand(Program& program);
void addDiffCommand(Program& program);
void addCheckCommand(Program& program);

}  // namespace pslog

#endif  // PSLOG_COMMANDS_H
