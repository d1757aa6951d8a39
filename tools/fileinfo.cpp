// fileinfo: shows what libFileInfo reads from media files, for people (a
// table or a labelled listing), for spreadsheets (csv, tsv) and for scripts
// (one JSON object per line); says whether a device plays them; writes tags.
// The command line itself is a function of the tool's library (Tool.h),
// which the Python package calls too.
#include "Tool.h"

int main(int argc, char** argv) { return fileinfo::RunTool(argc, argv); }
