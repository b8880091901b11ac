"""Trace lines of ZEBULib2 from Python, and a handler for the logging module.

    import logging, zebulib2
    log = zebulib2.Log("/var/trace/app", "app", shared=True)
    log.set_level(zebulib2.DEBUG)
    log.put(zebulib2.INFO, "started")
    log.put(zebulib2.ERROR, "no answer", id="NET-17")
    logging.basicConfig(handlers=[zebulib2.Handler(log)], level=logging.INFO)
    logging.getLogger("net").warning("the name of the logger is the message id")

The log of the process is Log, of which one is open at a time; an Instance is a further log with a ring, a name
and levels of its own. What fails raises Error. A forked child makes logs of its own.
"""

import ctypes
import logging
import os

OFF, FATAL, ERROR, WARNING, NOTICE, INFO, DEBUG, TRACE, ALL = -1, 0, 100, 200, 300, 400, 600, 800, 1000

_lib = ctypes.CDLL("libZEBULib2.so.2")


class _Spec(ctypes.Structure):
    _fields_ = [("size", ctypes.c_long), ("files", ctypes.c_long), ("prefix", ctypes.c_char_p)]


class Error(OSError):
    """A call failed: errno, and the value of the library, as `zebu2 explain` takes it."""

    def __init__(self, what):
        code = ctypes.c_int(0)
        self.value = _lib.ZEBU2_GetLastError(ctypes.byref(code)) & 0xFFFFFFFF
        reason = ": " + os.strerror(code.value) if code.value else ""
        super().__init__(code.value, f"{what} failed with 0x{self.value:08X}{reason}")


def _bytes(text):
    """What a put takes: UTF-8 without a zero byte, which would end it."""
    return None if text is None else str(text).encode("utf-8", "backslashreplace").replace(b"\0", b"\\0")


class _Base:
    """What both kinds of log share. _call(name, ...) calls the function of this kind."""

    def _check(self, what, result):
        if result == -1:
            raise Error(what)
        return result

    def _start(self, prefix, name, size, files, shared, options, function, *handle):
        self._name = _bytes(name)
        spec = ctypes.byref(_Spec(size, files, os.fsencode(prefix))) if prefix is not None else None
        if shared:
            result = getattr(_lib, function + "M")(*handle, spec, self._name, options)
        else:
            result = getattr(_lib, function)(*handle, spec, self._name)
        self._check("opening " + str(prefix), result)
        self.result = result  #: 0 complete, 1 without files, 2 without trace area, 3 found again
        self._open = True

    def put(self, level, text, id=None, type=None):
        if type is not None:
            result = self._call("PutWithMsgType", level, self._name, _bytes(id), _bytes(type), _bytes(text))
        elif id is not None:
            result = self._call("PutWithId", level, _bytes(id), _bytes(text))
        else:
            result = self._call("PutLine", level, _bytes(text))
        self._check("put", result)

    def flush(self):
        self._check("flush", self._call("FileBufferFlush"))

    def backup(self, path, option=0):
        self._check("backup", self._call("TraceBackupM", os.fsencode(path), option))

    def set_level(self, level):
        return self._call("SetLogLevel", level)

    def set_file_threshold(self, level):
        return self._call("SetFileThreshold", level)

    def set_area_threshold(self, level):
        return self._call("SetShmThreshold", level)

    def close(self):
        if self._open:
            self._open = False
            self._check("close", self._stop())

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        self.close()


class Log(_Base):
    """The log of the process. A prefix of None: to the trace area alone."""

    def __init__(self, prefix, name, size=1 << 20, files=4, shared=False, options=0):
        self._start(prefix, name, size, files, shared, options, "ZEBU2_Initialize")

    def _call(self, function, *arguments):
        return getattr(_lib, "ZEBU2_" + function)(*arguments)

    def _stop(self):
        return _lib.ZEBU2_Finalize()


class Instance(_Base):
    """A log beside the one of the process."""

    def __init__(self, prefix, name, size=1 << 20, files=4, shared=False, options=0):
        self._handle = ctypes.c_void_p()
        handle = ctypes.byref(self._handle)
        self._start(prefix, name, size, files, shared, options, "ZEBU2_CreateInstance", handle)

    def _call(self, function, *arguments):
        verb = "Put" if function.startswith("Put") else "Set" if function.startswith("Set") else ""
        return getattr(_lib, f"ZEBU2_{verb}Instance{function[len(verb):]}")(self._handle, *arguments)

    def _stop(self):
        handle, self._handle = self._handle, ctypes.c_void_p()
        return _lib.ZEBU2_DeleteInstance(handle)


class Handler(logging.Handler):
    """Puts records: the name of the logger is the message id, and each line of the text becomes a trace line."""

    def __init__(self, log, level=logging.NOTSET):
        super().__init__(level)
        self._log = log

    @staticmethod
    def level_of(number):
        """The level of a trace line: CRITICAL 0, ERROR 100, WARNING 200, INFO 400, DEBUG 600, below 800."""
        steps = [(50, FATAL), (40, ERROR), (30, WARNING), (20, INFO), (10, DEBUG)]
        return next((level for least, level in steps if number >= least), TRACE)

    def emit(self, record):
        try:
            for line in self.format(record).splitlines() or [""]:
                self._log.put(self.level_of(record.levelno), line, id=record.name)
        except Exception:
            self.handleError(record)

    def flush(self):
        """Nothing is held back: a line is with the kernel when its put returns."""
