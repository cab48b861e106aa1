// pslog: reads the store's messages from a log and answers questions about what happened. See --help.

#include "commands.h"

int main(int argc, char** argv) {
    pslog::Program program(
        "Reads the messages of the parameter store from a log: a host's, or the platform logger's in any of its\n"
        "formats, also amid other text, as in a bug report, and compressed with gzip or zstd. Most answers need a\n"
        "log of level 5.");
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
