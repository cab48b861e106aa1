// pslog: reads the store's messages from a log and answers questions about what happened. See --help.

#include "commands.h"

int main(int argc, char** argv) {
    pslog::Program program(
        "Reads the messages of the parameter store from a log: the host's format, or the platform logger's\n"
        "brief, time or threadtime. Other lines are passed over. Most answers need a log of level 5.");
    addSummaryCommand(program);
    addFrameCommand(program);
    addTimelineCommand(program);
    return program.run(argc, argv);
}
