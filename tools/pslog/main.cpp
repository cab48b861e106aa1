// pslog: reads the store's messages from a log and answers questions about what happened. See --help.

#include "commands.h"

int main(int argc, char** argv) {
    pslog::Program program(
        "Reads the messages of the parameter store from a log of a host, or of a device in any format of the\n"
        "platform's logger. The log may be compressed with gzip or zstd, and may contain other text, as a bug report\n"
        "does. Most answers need a log of level 5.");
    addSummaryCommand(program);
    addFlickersCommand(program);
    addWhyCommand(program);
    addFrameCommand(program);
    addTimelineCommand(program);
    addTopCommand(program);
    addDiffCommand(program);
    addCheckCommand(program);
    return program.run(argc, argv);
}
