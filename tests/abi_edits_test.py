#!/usr/bin/env python3
"""Shows that the checks of the interface work: plants one edit at a time in a copy of the sources, and prints which
check catches it. Fails if no check catches an edit, or if a check complains without an edit.

usage: abi_edits_test.py FOLDER-TO-WORK-IN
"""
import os
import re
import shutil
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
HEADER, CORE, LIFETIME, OPS = "include/paramset.h", "src/paramset.cpp", "src/frame_lifetime.cpp", "src/external_ops.cpp"

# The name of an edit, and its changes: file, text, replacement. The edited sources still compile.
EDITS = [
    ("members of ParamFrame swapped", [
        (HEADER, "    std::map<uint32_t, std::shared_ptr<void>> mTags;  ///< tag id to value buffer\n", ""),
        (HEADER, "///< own copy, or null\n",
         "///< own copy, or null\n    std::map<uint32_t, std::shared_ptr<void>> mTags;\n")]),
    ("virtual function before create", [
        (HEADER, "    virtual std::shared_ptr<void> create(", "    virtual int kind() const { return 0; }\n"
         "    virtual std::shared_ptr<void> create(")]),
    ("eraseTag returns long", [
        (HEADER, "int eraseTag(uint32_t tag);", "long eraseTag(uint32_t tag);"),
        (CORE, "int ParamFrame::eraseTag(", "long ParamFrame::eraseTag(")]),
    ("getParamExternal returns long", [
        (HEADER, "int getParamExternal(", "long getParamExternal("),
        (OPS, "int ParamSet::getParamExternal(", "long ParamSet::getParamExternal(")]),
    ("getTag returns another pointer", [
        (HEADER, "std::shared_ptr<void> getTag(", "std::shared_ptr<const void> getTag("),
        (CORE, "std::shared_ptr<void> ParamFrame::getTag(", "std::shared_ptr<const void> ParamFrame::getTag(")]),
    ("export removed", [(HEADER, "PARAMSET_API uint32_t getActiveTagSize();", "uint32_t getActiveTagSize();")]),
    ("export added", [
        (HEADER, "    PARAMSET_API uint32_t getActiveTagSize();",
         "    PARAMSET_API uint32_t getActiveTagSize();\n    PARAMSET_API uint32_t getStatusSize();"),
        (CORE, "camera_metadata* ParamFrame::getMetadata() {",
         "uint32_t ParamFrame::getStatusSize() {\n    return static_cast<uint32_t>(mStatus.size());\n}\n\n"
         "camera_metadata* ParamFrame::getMetadata() {")]),
    ("C function added", [
        (HEADER, "PARAMSET_API uint32_t erasePs(uint32_t cam,",
         "PARAMSET_API void setPsNothing(void);\nPARAMSET_API uint32_t erasePs(uint32_t cam,"),
        (LIFETIME, "uint32_t erasePs(uint32_t cam,", "void setPsNothing() {}\n\nuint32_t erasePs(uint32_t cam,")]),
    ("dump without types", [("abi/CMakeLists.txt", "    -O0 -g ", "    -O0 -g0 ")]),
    ("version script left out", [
        ("abi/CMakeLists.txt", "-Wl,--version-script=${PROJECT_SOURCE_DIR}/src/paramset.map", "")]),
    ("standard library exported", [
        ("src/paramset.map", "    local:\n        *;", "        _ZNSt*;\n    local:\n        *;")]),
    ("member added to tag_info_t", [
        (HEADER, "    int32_t mRetainNum = 0; ", "    int32_t mAge = 0;\n    int32_t mRetainNum = 0; ")]),
    ("base class put under tag_info_t", [
        (HEADER, "/** What the registry knows of a tag. */\nstruct tag_info_t {",
         "struct tag_info_age {\n    int64_t mAge = 0;\n};\nstruct tag_info_t : tag_info_age {")]),
    ("member of FrameStatus of another type", [
        (HEADER, "uint32_t mFrameID = 0;  ", "uint64_t mFrameID = 0;  ")]),
    ("slots of zarn_ops swapped", [
        (HEADER, "int (*cmd8)(void* handle5, void* in);", "int (*cmdX)(void* handle5, void* in);"),
        (HEADER, "int (*cmd9)(void* handle0, void* in);", "int (*cmd8)(void* handle0, void* in);"),
        (HEADER, "(*cmdX)", "(*cmd9)")]),
    ("argument of an operation changed", [
        (HEADER, "int (*cmd10)(void* handle0, uint32_t value);", "int (*cmd10)(void* handle0, uint64_t value);")]),
    ("argument of a C function changed", [
        (HEADER, "erasePs(uint32_t cam, int32_t pipe, uint32_t frame);",
         "erasePs(uint32_t cam, int32_t pipe, uint64_t frame);"),
        (LIFETIME, "erasePs(uint32_t cam, int32_t pipe, uint32_t frame) {",
         "erasePs(uint32_t cam, int32_t pipe, uint64_t wide) {\n    const auto frame = static_cast<uint32_t>(wide);")]),
    ("argument of a class's function changed", [
        (HEADER, "bool existTag(uint32_t tag);", "bool existTag(uint64_t tag);"),
        (CORE, "ParamFrame::existTag(uint32_t tag) {",
         "ParamFrame::existTag(uint64_t tag64) {\n    const auto tag = static_cast<uint32_t>(tag64);")]),
    ("container of another key", [
        (HEADER, "std::map<uint32_t, uint32_t> mErasePoint; ", "std::map<uint64_t, uint32_t> mErasePoint; ")]),
    ("mMutex behind mElem", [
        (HEADER, "    std::mutex mMutex;                               // guards what each pipe holds\n", ""),
        (HEADER, "from construction to destruction\n", "from construction to destruction\n    std::mutex mMutex;\n")]),
    ("log switch not exported", [(HEADER, "extern PARAMSET_API int ps_log_tag;", "extern int ps_log_tag;")]),
]

# An edit that must not be caught: only the library makes a store, so no program knows its size.
ALLOWED = ("private member appended to ParamSet", [
    (HEADER, "from construction to destruction\n", "from construction to destruction\n    uint64_t mLast = 0;\n")])


def constants():
    """An edit for each number that the headers define."""
    edits = []
    for path in (HEADER, "include/paramset_typed.h"):
        text = open(os.path.join(ROOT, path)).read()
        found = re.findall(r"^#define PS_\w+ \w+|^ +[A-Z_]+ = [0-9]\w*|const uint32_t THE_LAST = \w+", text, re.M)
        found += re.findall(r"\b[A-Z_]+ = PS_[A-Z_]+", text)
        for definition in found:
            value = definition.split()[-1]
            other = "17u" if value.endswith("u") else "PS_OK + 17u" if value.startswith("PS_") else "17"
            edits.append((definition.strip(), [(path, definition, definition[: -len(value)] + other)]))
        for enumerator in re.findall(r"^    [A-Z_]+(?=,? +/\*\*<)", text, re.M):
            name = enumerator.strip()
            edits.append((name, [(path, enumerator, "    BEFORE_%s, %s" % (name, name))]))
    return edits


def run(command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)


def catcher(copy):
    """The check that catches the edit in the copy; an empty text if none does. An edit must compile to count."""
    compiled = run(["g++", "-std=c++17", "-fsyntax-only", "-I%s/include" % copy, copy + "/abi/interface.cpp"])
    if compiled.returncode != 0:
        return "compiler" if "static assertion failed" in compiled.stdout else "DOES NOT COMPILE"
    build = run(["cmake", "--build", copy + "/build", "--target", "paramset_interface"])
    if build.returncode != 0:
        return "DOES NOT COMPILE"
    return "" if run([copy + "/scripts/abi", copy + "/build/abi/libparamset.so"]).returncode == 0 else "dump"


def plant(copy, edits):
    for path, old, new in edits:
        text = open(os.path.join(copy, path)).read()
        if text.count(old) != 1:
            sys.exit("%s has this text %d times instead of once: %s" % (path, text.count(old), old))
        with open(os.path.join(copy, path), "w") as file:
            file.write(text.replace(old, new))


def restore(copy, edits):
    for path in {path for path, _, _ in edits}:
        shutil.copyfile(os.path.join(ROOT, path), os.path.join(copy, path))


def main(copy):
    shutil.rmtree(copy, ignore_errors=True)
    for folder in ("abi", "cmake", "include", "platform", "scripts", "src"):
        shutil.copytree(os.path.join(ROOT, folder), os.path.join(copy, folder))
    for file in ("CMakeLists.txt", "CMakePresets.json"):
        shutil.copy(os.path.join(ROOT, file), copy)
    # Warnings are allowed in an edit.
    configured = run(["cmake", "--preset", "gcc", "-S", copy, "-B", copy + "/build", "-DPARAMSET_TESTS=OFF",
                      "-DPARAMSET_EXAMPLES=OFF", "-DPARAMSET_TOOLS=OFF", "-DCMAKE_CXX_FLAGS=-w"])
    if configured.returncode != 0 or catcher(copy):
        sys.exit("a check complains without an edit:\n" + configured.stdout)
    missed = 0
    edits = constants() + EDITS
    for name, edit in edits + [ALLOWED]:
        plant(copy, edit)
        check = catcher(copy)
        restore(copy, edit)
        missed += check != "" if name == ALLOWED[0] else check not in ("compiler", "dump")
        print("%-45s %s" % (name, check or "-"), flush=True)
    print("amount: %d edits, %d with a wrong result" % (len(edits) + 1, missed))
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main(os.path.abspath(sys.argv[1])))
