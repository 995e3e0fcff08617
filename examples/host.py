#!/usr/bin/env python3
"""A host in Python, by ctypes alone: a session, nested events from dicts, an upload that waits and one with observers.

    host.py LIBRARY URL FOLDER [offline]

Events go to FOLDER/events.log and from there to URL; each is printed as it was logged. With "offline" both uploads wait
for their outcome: a machine without any route gives up what it has queued. Copy the class; main() shows its use.
"""
import ctypes
import sys
import threading

OBSERVER = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_uint32, ctypes.c_double)
EACH = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p)


class Config(ctypes.Structure):
    """analytics_config: 2,970 bytes of text, field by field; copied when the session opens."""
    _fields_ = [("upload_url", ctypes.c_char * 2000), ("event_log_file", ctypes.c_char * 260),
                ("pid_file", ctypes.c_char * 260), ("unique_id", ctypes.c_char * 40),
                ("application_id", ctypes.c_char * 100), ("application_version", ctypes.c_char * 50),
                ("certificate_file", ctypes.c_char * 260)]


def load(path):
    """The library, with the arguments of each function: without them a pointer would be cut to 32 bits."""
    session, text, size = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_size_t
    library = ctypes.CDLL(path)
    calls = {"event_begin": [text], "event_end": [], "object_begin": [], "object_end": [],
             "array_begin": [], "array_end": [],
             "name_object_begin": [text], "name_array_begin": [text], "log_get": [text, size],
             "observer_add": [text, OBSERVER, ctypes.c_void_p], "send": [ctypes.c_int], "property_add": [text]}
    for kind, value in {"text": [text, size], "string": [text], "bool": [ctypes.c_bool], "int64": [ctypes.c_int64],
                        "uint64": [ctypes.c_uint64], "float64": [ctypes.c_double]}.items():
        calls[f"name_{kind}_add"], calls[f"{kind}_add"] = [text] + value, value
    for name, arguments in calls.items():
        call = getattr(library, "analytics_" + name)
        call.argtypes, call.restype = [session] + arguments, ctypes.c_uint32
    library.analytics_initialize.argtypes = [ctypes.POINTER(Config)]
    library.analytics_initialize.restype = session
    library.analytics_shutdown.argtypes, library.analytics_shutdown.restype = [session], None
    library.analytics_result_text.argtypes, library.analytics_result_text.restype = [ctypes.c_uint32], text
    library.analytics_property_each.argtypes, library.analytics_property_each.restype = [EACH, ctypes.c_void_p], None
    return library


class Session:
    """One session, used by one thread at a time; closes itself at the end of a `with` block."""

    def __init__(self, library, **settings):
        self._library = load(library)
        self._observers = []  # the library keeps only the address: what is collected here must live as long
        config = Config(**{name: value.encode() for name, value in settings.items()})
        self._session = self._library.analytics_initialize(ctypes.byref(config))
        if not self._session:
            raise MemoryError("the session could not be opened")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        # Not from an observer: this waits for the thread that observers run on. ctypes lets go of the interpreter's
        # lock meanwhile, so an observer that is still running can finish.
        self._library.analytics_shutdown(self._session)

    def _call(self, name, *arguments):
        code = getattr(self._library, "analytics_" + name)(self._session, *arguments)
        if code:
            raise RuntimeError(f"analytics_{name}: {self._library.analytics_result_text(code).decode()} ({code})")

    def log(self, name, members):
        """Logs an event: a dict of texts, numbers, bools, None, lists and dicts."""
        begun = name.encode()  # kept by this variable until the event's end, as the library keeps only its address
        self._call("event_begin", begun)
        for key, value in members.items():
            self._add(key, value)
        self._call("event_end")

    def _add(self, name, value):
        key = name.encode()
        if isinstance(value, dict):
            self._call("name_object_begin", key)  # `key` lives until this call returns, and so to the object's end
            for inner, each in value.items():
                self._add(inner, each)
            self._call("object_end")
        elif isinstance(value, (list, tuple)):
            self._call("name_array_begin", key)
            for each in value:
                self._add_element(each)
            self._call("array_end")
        else:
            self._call(*self._value("name_", [key], value))

    def _add_element(self, value):
        if isinstance(value, dict):
            self._call("object_begin")
            for name, each in value.items():
                self._add(name, each)
            self._call("object_end")
        elif isinstance(value, (list, tuple)):
            self._call("array_begin")
            for each in value:
                self._add_element(each)
            self._call("array_end")
        else:
            self._call(*self._value("", [], value))

    @staticmethod
    def _value(prefix, name, value):
        """The call for a plain value. A bool is an int in Python, so it is asked for first."""
        if value is None:
            return [prefix + "string_add", *name, None]
        if isinstance(value, bool):
            return [prefix + "bool_add", *name, value]
        if isinstance(value, str):
            text = value.encode(errors="surrogateescape")
            return [prefix + "text_add", *name, text, len(text)]
        if isinstance(value, int) and -2**63 <= value < 2**63:
            return [prefix + "int64_add", *name, value]
        if isinstance(value, int) and 0 <= value < 2**64:
            return [prefix + "uint64_add", *name, value]
        return [prefix + "float64_add", *name, float(value)]

    def last(self):
        """The members of the last event, as they were logged."""
        text = ctypes.create_string_buffer(65536)
        self._call("log_get", text, len(text) - 1)
        return text.value.decode(errors="replace")

    def properties(self):
        """The keys of all facts of the machine, each with what it tells."""
        found = {}
        self._library.analytics_property_each(
            EACH(lambda _, key, sentence: found.update({key.decode(): sentence.decode()})), None)
        return found

    def add_machine(self, name, *keys):
        """Logs an event with those facts that this machine tells."""
        begun = name.encode()
        self._call("event_begin", begun)
        for key in keys:
            self._library.analytics_property_add(self._session, key.encode())
        self._call("event_end")

    def observe(self, event, observer):
        """Has observer(value, amount) called on a thread of the library's, from the first send on."""
        def guarded(_, value, amount):
            try:
                observer(value, amount)
            except Exception as fault:  # nothing may leave an observer
                print(f"observer: {fault}", file=sys.stderr)
        self._observers.append(OBSERVER(guarded))
        self._call("observer_add", event.encode(), self._observers[-1], None)

    def send(self, wait=True):
        """Uploads now; without `wait` the observers hear the outcome."""
        self._call("send", 1 if wait else 0)


def main(library, url, folder, offline=""):
    with Session(library, upload_url=url, event_log_file=folder + "/events.log", pid_file=folder + "/id",
                 application_id="host.py", application_version="1.0") as session:
        ended, outcome = threading.Event(), []

        def hear(kind):
            return lambda value, amount: (outcome.append((kind, value)), ended.set())
        session.observe("complete", hear("complete"))
        session.observe("error", hear("error"))

        session.log("launch", {"user": "Zo\u00eb", "count": 3, "ratio": 0.5, "first": True, "none": None,
                               "largest": 2**64 - 1, "text": "a NUL: \0, a quote: \""})
        print("logged", session.last())
        session.log("window", {"size": {"width": 640, "height": 480}, "tabs": ["a", {"title": "b", "ids": [1, [2, 3]]}]})
        print("logged", session.last())
        session.send()
        session.add_machine("machine", "system", "processors")
        print("logged", session.last())
        print(len(session.properties()), "facts can be added")
        session.send(wait=bool(offline))
        if not offline and not ended.wait(60):
            return "the upload did not end"
        print("upload ended:", outcome or "waited for")
        return 0 if offline or outcome == [("complete", 0)] else f"the upload failed: {outcome}"


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
