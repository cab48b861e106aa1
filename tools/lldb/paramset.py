"""Shows the parameter store of a stopped process, or of a core file, in lldb.

    (lldb) command script import tools/lldb/paramset.py
    (lldb) paramset status

It only reads memory, and calls nothing in the process. It finds members through the library's debug information. It
reads the containers of the C++ library by their layouts, because lldb's own formatters show a map of a g++ build as
empty.
"""

import argparse
import collections

import lldb

LIBRARY = "libparamset.so"
METADATA_TAG = 0x20001
THE_LAST = 0xFFFFFFFF
STATIC = 1  # tag type: frame 0 answers every read
STATES = {0: "", 1: "delivered", 2: "waited for"}
COND_SIZE = 48  # size of the C library's condition variable, in glibc and bionic

# The register with the first argument of a system call. If a thread waits on a mutex or a condition variable, this is
# the address on which it waits.
ARGUMENT_REGISTERS = {"x86_64": "rdi", "aarch64": "x0", "arm64": "x0"}
# Functions that get such an address too, but do not wait.
WAKING_FUNCTIONS = ("unlock", "broadcast", "signal", "notify")
STACK_DEPTH = 16
MOST_BYTES = 1 << 28  # limit for the size of one value or list


class Problem(Exception):
    """An error, printed to the user in one line."""


class Memory:
    def __init__(self, process):
        self._process = process

    def read(self, address, size):
        if size == 0:
            return b""
        if size > MOST_BYTES:
            raise Problem(f"{size} bytes at {address:#x} are too many: the store is damaged, or was being changed")
        error = lldb.SBError()
        content = self._process.ReadMemory(address, size, error)
        if error.Fail() or len(content) != size:
            raise Problem(f"{size} bytes at {address:#x} cannot be read: {error.GetCString() or 'too few'}")
        return content

    def number(self, address, size=4):
        return int.from_bytes(self.read(address, size), "little")

    def pointer(self, address):
        return self.number(address, 8)

    def list_of_ids(self, vector):
        begin, end = self.pointer(vector), self.pointer(vector + 8)
        content = self.read(begin, end - begin) if begin < end else b""
        return [int.from_bytes(content[i : i + 4], "little") for i in range(0, len(content), 4)]


class Containers(Memory):
    """The maps and strings of a C++ library. (Shared pointers and vectors have the same layout in all of them.)"""

    # Offsets in a map: size and root of its tree. Offsets in a node: its children, and its entry for each alignment.
    SIZE, ROOT, LEFT, RIGHT, ENTRY = None, None, None, None, None

    def entries(self, address, alignment=8):
        """The keys of a map, in order, with the addresses of their values."""
        remaining = self.number(address + self.SIZE, 8)
        parents = []
        node = self.pointer(address + self.ROOT)
        while (node or parents) and remaining > 0:
            while node:
                parents.append(node)
                if len(parents) > 128:
                    raise Problem(f"the map at {address:#x} is damaged, or was being changed")
                node = self.pointer(node + self.LEFT)
            node = parents.pop()
            remaining -= 1
            entry = node + self.ENTRY[alignment]
            yield self.number(entry), entry + alignment
            node = self.pointer(node + self.RIGHT)


class Libstdcpp(Containers):
    MAP_SIZE = 48
    SIZE, ROOT, LEFT, RIGHT, ENTRY = 40, 16, 16, 24, {4: 32, 8: 32}

    def text(self, address):
        return self.read(self.pointer(address), self.pointer(address + 8)).decode(errors="replace")


class Libcpp(Containers):
    MAP_SIZE = 24
    SIZE, ROOT, LEFT, RIGHT, ENTRY = 16, 8, 0, 8, {4: 28, 8: 32}

    def text(self, address):
        first = self.number(address, 1)
        if first & 1:
            content = self.read(self.pointer(address + 16), self.pointer(address + 8))
        else:
            content = self.read(address + 1, first >> 1)
        return content.decode(errors="replace")


Tag = collections.namedtuple("Tag", "name data_type tag_type size retain has_creator")
Record = collections.namedtuple("Record", "state condition")
UNREGISTERED = Tag("(not registered)", "", 0, 0, 0, False)
METADATA = Tag("(metadata)", "", 0, 0, 6, False)


class Frame:
    def __init__(self, store, address):
        memory, at = store.memory, store.member
        self.metadata = memory.pointer(at(address, "ParamFrame", "mMetadata"))
        self.values = {
            tag: memory.pointer(value) for tag, value in memory.entries(at(address, "ParamFrame", "mTags"))
        }
        self.records = {}
        for tag, record in memory.entries(at(address, "ParamFrame", "mStatus")):
            state = memory.number(at(record, "FrameStatus", "mState"))
            self.records[tag] = Record(state, at(record, "FrameStatus", "mCond"))


class Pipe:
    def __init__(self, store, address):
        memory, at = store.memory, store.member
        self.frame0 = Frame(store, memory.pointer(at(address, "pipe_elem", "mF0")))
        self.frames = {}
        for frame, pointer in memory.entries(at(address, "pipe_elem", "mFrames")):
            if memory.pointer(pointer):
                self.frames[frame] = Frame(store, memory.pointer(pointer))
        self.checkpoints = {}
        for tag, pointer in memory.entries(at(address, "pipe_elem", "mCheckPoint")):
            ids = memory.pointer(pointer)
            self.checkpoints[tag] = memory.list_of_ids(ids) if ids else []
        self.erase_points = {
            tag: memory.number(value) for tag, value in memory.entries(at(address, "pipe_elem", "mErasePoint"), 4)
        }

    def all_frames(self):
        return {0: self.frame0, **self.frames}

    def newest_checkpoint(self, tag, frame):
        return max((known for known in self.checkpoints.get(tag, ()) if known <= frame), default=0)

    def tags(self):
        used = set(self.checkpoints) | set(self.erase_points)
        return sorted(used.union(*(set(frame.values) | set(frame.records) for frame in self.all_frames().values())))


class Store:
    """The store in memory. Raises a Problem if it cannot be shown."""

    def __init__(self, target):
        process = target.GetProcess()
        if not process.IsValid() or process.GetNumThreads() == 0:
            raise Problem("no process: attach to one, or open a core file")
        self.process = process
        self._module = self._find_library(target)
        self._types = {}
        self.memory = Memory(process)
        self.address = self.memory.pointer(self._find_owner(target))
        if self.address == 0:
            raise Problem("no store: it was not created yet, or was destroyed")
        map_size = self._field("pipe_elem", "mFrames").GetType().GetByteSize()
        for library in (Libstdcpp, Libcpp):
            if library.MAP_SIZE == map_size:
                self.memory = library(process)
        if not isinstance(self.memory, Containers):
            raise Problem(f"unknown C++ library: its map has {map_size} bytes")

    @staticmethod
    def _find_library(target):
        for module in target.module_iter():
            if (module.GetFileSpec().GetFilename() or "").startswith(LIBRARY):
                return module
        raise Problem(f"{LIBRARY} is not loaded in this process")

    def _find_owner(self, target):
        owner = self._module.FindSymbol("_ZN4zarn8ParamSet9sInstanceE")
        if not owner.IsValid():
            self._complain_about_debug_information()
        return owner.GetStartAddress().GetLoadAddress(target)

    def _complain_about_debug_information(self):
        name = self._module.GetFileSpec().GetFilename()
        raise Problem(f"{name} has no debug information: add an unstripped one with 'target symbols add FILE'")

    def _field(self, type_name, member):
        if type_name not in self._types:
            found = self._module.FindFirstType("zarn::" + type_name)
            self._types[type_name] = {field.GetName(): field for field in found.fields} if found.IsValid() else {}
        if member not in self._types[type_name]:
            self._complain_about_debug_information()
        return self._types[type_name][member]

    def member(self, address, type_name, member):
        return address + self._field(type_name, member).GetOffsetInBytes()

    def mutex(self):
        return self.member(self.address, "ParamSet", "mMutex")

    def holder_of_mutex(self):
        """The thread that holds the store's mutex; None if no thread does; 0 if the C library does not tell which."""
        if self.memory.number(self.mutex(), 2) & 3 == 0:
            return None
        owner = self.memory.number(self.mutex() + 8)
        return self.process.GetThreadByID(owner) if owner else 0

    def tags(self):
        """The registry. Each frame has a pointer to it."""
        any_frame = self.memory.pointer(self.member(self._pipe_address(0, 0), "pipe_elem", "mF0"))
        registry = self.memory.pointer(self.member(any_frame, "ParamFrame", "mTagInfo"))
        tags = {}
        for tag, info in self.memory.entries(registry):
            text = {name: self.memory.text(self.member(info, "tag_info_t", name)) for name in ("mName", "mDataType")}
            number = {
                name: self.memory.number(self.member(info, "tag_info_t", name))
                for name in ("mTagType", "mSize", "mRetainNum")
            }
            creator = self.memory.pointer(self.member(info, "tag_info_t", "mCreator"))
            tags[tag] = Tag(text["mName"], text["mDataType"], *number.values(), creator != 0)
        return tags

    def _cameras(self):
        cameras = self.memory.entries(self.member(self.address, "ParamSet", "mElem"))
        return {camera: self.memory.pointer(pointer) for camera, pointer in cameras}

    def _pipe_count_and_size(self):
        pipes = self._field("cam_elem", "mPipe").GetType()
        size = pipes.GetArrayElementType().GetByteSize()
        return pipes.GetByteSize() // size, size

    def _pipe_address(self, camera, pipe):
        cameras = self._cameras()
        count, size = self._pipe_count_and_size()
        for what, number, limit in ("camera", camera, len(cameras)), ("pipe", pipe, count):
            if not 0 <= number < limit:
                raise Problem(f"{what} {number} is out of limit, 0 to {limit - 1}")
        return self.member(cameras[camera], "cam_elem", "mPipe") + pipe * size

    def pipe(self, camera, pipe):
        return Pipe(self, self._pipe_address(camera, pipe))

    def pipes(self):
        for camera in self._cameras():
            for pipe in range(self._pipe_count_and_size()[0]):
                yield camera, pipe, self.pipe(camera, pipe)


def describe(tag, tags):
    return METADATA if tag == METADATA_TAG else tags.get(tag, UNREGISTERED)


def extent(ids):
    """The number of frames, the first and the last."""
    return f"{len(ids)}: {min(ids)} to {max(ids)}" if ids else "-"


def name_of(thread):
    own_name = thread.GetName() not in (None, "", thread.GetProcess().GetThreadAtIndex(0).GetName())
    name = f" {thread.GetName()}" if own_name else ""
    return f"thread {thread.GetIndexID()}{name} (tid {thread.GetThreadID()})"


# ---- status


STATUS_WIDTHS = (3, 4, -14, 6, -14, 5, 4, 6, -14, 6, 7)
FRAMES_WIDTHS = (10, 6, -14, 14, -10)


def row(widths, *cells):
    """A line of a table. A negative width aligns the text to the left."""
    texts = ("-" if cell is None else str(cell) for cell in cells)
    padded = (text.ljust(-width) if width < 0 else text.rjust(width) for width, text in zip(widths, texts))
    return " ".join(padded).rstrip()


def status(store, _):
    tags = store.tags()
    used = [(camera, number, pipe) for camera, number, pipe in store.pipes() if pipe.tags()]
    cameras = {camera for camera, _, _ in used}
    yield f"store at {store.address:#x}; tags registered: {len(tags)}, cameras used: {len(cameras)}, pipes: {len(used)}"
    headings = ("cam", "pipe", "frames", "tag", "name", "bytes", "type", "retain", "values", "erased", "frame 0")
    yield row(STATUS_WIDTHS, *headings)
    for camera, number, pipe in used:
        place = (camera, number, extent(pipe.frames))
        for tag in pipe.tags():
            known = describe(tag, tags)
            is_value = tag in tags
            yield row(
                STATUS_WIDTHS,
                *place,
                tag,
                known.name,
                known.size if is_value else None,
                known.tag_type if is_value else None,
                known.retain or None,
                extent(pipe.checkpoints.get(tag, [])),
                pipe.erase_points.get(tag) or None,
                "yes" if tag in pipe.frame0.values else None,
            )
            place = ("", "", "")


# ---- frames


def frames(store, arguments):
    pipe, tags = store.pipe(arguments.camera, arguments.pipe), store.tags()
    yield row(FRAMES_WIDTHS, "frame", "tag", "name", "value", "state")
    for number, frame in pipe.all_frames().items():
        contents = sorted(set(frame.values) | set(frame.records))
        if frame.metadata:
            yield row(FRAMES_WIDTHS, number, METADATA_TAG, METADATA.name, hex(frame.metadata))
        elif not contents:
            yield row(FRAMES_WIDTHS, number, None, "(nothing)")
        for tag in contents:
            buffer = hex(frame.values[tag]) if frame.values.get(tag) else None
            state = STATES.get(frame.records[tag].state, "?") if tag in frame.records else ""
            yield row(FRAMES_WIDTHS, number, tag, describe(tag, tags).name, buffer, state)


# ---- value


def resolve(pipe, frame, tag, known):
    """The frame that answers a plain get, and why."""
    erased = pipe.erase_points.get(tag, 0)
    if frame == 0:
        return 0, "frame 0 was asked for"
    if known.tag_type == STATIC:
        return 0, "the tag is of type 1"
    if frame <= erased:
        return 0, f"values up to frame {erased} are erased"
    if frame in pipe.frames and tag in pipe.frames[frame].values:
        return frame, "it has a value of its own"
    checkpoint = pipe.newest_checkpoint(tag, frame)
    if checkpoint == 0:
        return 0, "neither it nor an earlier frame has a value"
    return checkpoint, "the newest before it with a value"


def dump(content):
    """Rows of bytes. A '*' stands for rows that are equal to the row before."""
    before, is_folded = None, False
    for begin in range(0, len(content), 16):
        part = content[begin : begin + 16]
        if part != before:
            text = "".join(chr(byte) if 32 <= byte < 127 else "." for byte in part)
            yield f"{begin:06x}  {part.hex(' '):47}  {text}"
        elif not is_folded:
            yield "*"
        before, is_folded = part, part == before


def value(store, arguments):
    pipe, tags = store.pipe(arguments.camera, arguments.pipe), store.tags()
    tag, frame = arguments.tag, arguments.frame
    if frame == THE_LAST:
        frame = max(pipe.frames, default=0)
        yield f"the newest frame is {frame}"
    known = tags.get(tag)
    if known is None or not known.has_creator:
        raise Problem(f"tag {tag} is not registered, so reads fail")
    answering, why = resolve(pipe, frame, tag, known)
    yield (f"frame {frame}, tag {tag} {known.name} ({known.data_type}, {known.size} bytes): "
           f"answered by frame {answering}, {why}")
    own = pipe.frames.get(frame)
    if answering != frame and own is not None and tag in own.values:
        yield f"frame {frame} has a value of its own, which only a synchronous get returns"
    holder = pipe.all_frames().get(answering)
    buffer = holder.values.get(tag, 0) if holder is not None else 0
    if buffer:
        yield from dump(store.memory.read(buffer, known.size))
    elif answering == 0:
        yield "frame 0 has no value yet: a read creates one with all bytes 0"
    else:
        yield f"frame {answering} no longer exists or has no value any more: a read fails"


# ---- waiters


def sleeps_on(thread):
    """The address on which the thread waits, and its functions of the library, innermost first."""
    inner = [thread.GetFrameAtIndex(i) for i in range(min(STACK_DEPTH, thread.GetNumFrames()))]
    name = ARGUMENT_REGISTERS.get(thread.GetProcess().GetTarget().GetTriple().split("-")[0])
    if name is None:
        raise Problem("waiters cannot be found on this architecture")
    if any(word in (frame.GetFunctionName() or "") for frame in inner[:4] for word in WAKING_FUNCTIONS):
        return 0, []
    of_library = [f for f in inner if (f.GetModule().GetFileSpec().GetFilename() or "").startswith(LIBRARY)]
    return inner[0].FindRegister(name).GetValueAsUnsigned(), [f.GetFunctionName() or "" for f in of_library]


def conditions(store):
    """The address of each record's condition variable, with the record's camera, pipe number, frame, tag and pipe."""
    for camera, number, pipe in store.pipes():
        for frame, content in pipe.all_frames().items():
            for tag, record in content.records.items():
                yield record.condition, (camera, number, frame, tag, pipe)


def describe_wait(place, tags):
    camera, number, frame, tag, pipe = place
    newest = pipe.newest_checkpoint(tag, THE_LAST)
    since = f"no value since frame {newest}" if newest else "no value in any frame yet"
    if newest >= frame:
        since = f"the newest value is of frame {newest}"
    return f"frame {frame} of tag {tag} {describe(tag, tags).name}, camera {camera}, pipe {number}: {since}"


def waiters(store, _):
    tags, records = store.tags(), sorted(conditions(store), key=lambda record: record[0])
    mutex, found = store.mutex(), False
    for thread in store.process:
        address, functions = sleeps_on(thread)
        place = next((place for begin, place in records if begin <= address < begin + COND_SIZE), None)
        if place is not None:
            what = describe_wait(place, tags)
        elif address == mutex:
            holder = store.holder_of_mutex()
            what = "the store's mutex" + (f", which {name_of(holder)} holds" if holder else "")
        elif functions and address and any("getParamSyn" in name for name in functions):
            what = "a frame that was removed from its pipe"
        else:
            continue
        found = True
        yield f"{name_of(thread)} waits for {what}"
    if not found:
        yield "no thread waits in the store"


# ---- the command


def parse_id(text):
    if text == "last":
        return THE_LAST
    number = int(text, 0)
    if not 0 <= number <= THE_LAST:
        raise ValueError
    return number


parse_id.__name__ = "number"


class Help(Exception):
    """The help text, raised to end the parsing."""


class Parser(argparse.ArgumentParser):
    def error(self, message):
        raise Problem(message)

    def print_help(self, file=None):
        raise Help(self.format_help())


def parser():
    parser = Parser(prog="paramset", description="Shows the parameter store of a stopped process, or of a core file.")
    subcommands = parser.add_subparsers(dest="subcommand", metavar="SUBCOMMAND", required=True)
    places = {
        "camera": {"type": int, "metavar": "CAM"},
        "pipe": {"type": int, "metavar": "PIPE"},
        "frame": {"type": parse_id, "metavar": "FRAME", "help": "frame id; 0 is frame 0, 'last' is the newest"},
        "tag": {"type": parse_id, "metavar": "TAG"},
    }
    for run, text, names in (
        (status, "cameras, pipes, frames and tags in use", ()),
        (frames, "the frames of a pipe, with their values and records", ("camera", "pipe")),
        (value, "which frame answers a plain get, and the value's bytes", ("camera", "pipe", "frame", "tag")),
        (waiters, "which threads wait, and for which value or for the mutex", ()),
    ):
        subcommand = subcommands.add_parser(run.__name__, help=text, description=text)
        subcommand.set_defaults(run=run)
        for name in names:
            subcommand.add_argument(name, **places[name])
    return parser


class ParamsetCommand:
    def __init__(self, debugger, internal_dict):
        pass

    def __call__(self, debugger, command, execution_context, result):
        try:
            arguments = parser().parse_args(command.split())
            store = Store(execution_context.GetTarget() or debugger.GetSelectedTarget())
            holder = store.holder_of_mutex()
            if holder is not None:
                who = name_of(holder) if holder else "a thread"
                result.AppendMessage(f"{who} holds the store's mutex: the store may be half changed")
            for line in arguments.run(store, arguments):
                result.AppendMessage(line)
        except Help as text:
            result.AppendMessage(str(text))
        except Problem as problem:
            result.SetError(f"paramset: {problem}")

    def get_short_help(self):
        return "Shows the parameter store: status, frames, value, waiters."

    def get_long_help(self):
        return parser().format_help()


def __lldb_init_module(debugger, internal_dict):
    debugger.HandleCommand(f"command script add -c {__name__}.ParamsetCommand paramset")
