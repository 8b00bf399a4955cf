"""The stand-in SDK library by itself: a client that breaks its interface is found out."""

import os
import pathlib
import tempfile
import unittest

from simulator import endpoints, installation, scenario

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("KX_BUILD", ROOT / "build" / "release")).resolve()
LIBRARY = installation.LAYOUTS[1].library
REQUEST = b'{"data":{"Product":[{"@name":"GetStatus","input":{}}]}}'
# A client of the library: what is tested is put behind it.
CLIENT = f"""
import ctypes, threading
ON_EVENT = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p)
ON_RAN = ctypes.CFUNCTYPE(
    None, ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int, ctypes.c_char_p)
class Callbacks(ctypes.Structure):
    _fields_ = [("size", ctypes.c_uint32), ("onEvent", ON_EVENT), ("onRan", ON_RAN)]
heard = threading.Event()
def on_ran(context, batch, error, result):
    print(context, batch.decode(), error, threading.get_ident() == threading.main_thread().ident)
    heard.set()
callbacks = Callbacks(24, ON_EVENT(lambda context, name, data: None), ON_RAN(on_ran))
library = ctypes.CDLL({LIBRARY!r})
library.AgentSDK_ReleaseInstance.argtypes = [ctypes.c_void_p]
def get():
    instance = ctypes.c_void_p()
    print(library.AgentSDK_GetInstance(ctypes.byref(instance), 0))
    return instance
def entry(instance, number, *types):
    table = ctypes.cast(instance, ctypes.POINTER(ctypes.c_void_p))
    return ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, *types)(table[number])
def run(instance, request={REQUEST!r}, batch=b"batch"):
    return entry(instance, 3, ctypes.c_char_p, ctypes.c_char_p)(instance, request, batch)
def register(instance, record=callbacks):
    function = entry(instance, 4, ctypes.POINTER(Callbacks), ctypes.c_void_p)
    return function(instance, ctypes.byref(record), 5)
def unregister(instance, record=callbacks):
    return entry(instance, 5, ctypes.POINTER(Callbacks))(instance, ctypes.byref(record))
"""
MISUSES = {
    "entry(get(), 0)(None)": "entry 0 of the function table was called",
    "entry(get(), 2)(None)": "entry 2 of the function table was called",
    "run(get())": "a run without registered notifications",
    "i = get(); register(i); run(i, batch=None)": "a run without request or batch",
    "i = get(); register(i); register(i)": "notifications were registered twice",
    "register(get(), Callbacks(16, callbacks.onEvent, callbacks.onRan))":
        "the record of callbacks is not one",
    "register(get(), Callbacks(24, callbacks.onEvent))": "the record of callbacks is not one",
    "unregister(get())": "notifications were unregistered that are not registered",
    "i = get(); register(i); unregister(i); unregister(i)":
        "notifications were unregistered that are not registered",
    "i = get(); register(i); unregister(i, Callbacks(24, callbacks.onEvent, callbacks.onRan))":
        "notifications were unregistered that are not registered",
    "i = get(); library.AgentSDK_ReleaseInstance(i); library.AgentSDK_ReleaseInstance(i)":
        "called with a pointer that is no instance",
    "library.AgentSDK_GetInstance(None, 0)": "an instance was asked for without a place to put it",
}


class StandInLibrary(unittest.TestCase):
    """A client in Python, on a healthy endpoint."""

    def setUp(self):
        library = (BUILD / "simulator" / "agentsdk.so").read_bytes()
        if b"__asan_init" in library or b"__tsan_init" in library:
            self.skipTest("this client cannot load a library with a sanitizer")

    def client(self, endpoint, script):
        """Runs the client; gives its exit status, standard output and standard error."""
        with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as errors:
            status = endpoint.run(["/usr/bin/python3", "-I", "-c", CLIENT + script], stdout=output,
                                  stderr=errors, timeout=60)
            output.seek(0)
            errors.seek(0)
            return status, output.read().decode(), errors.read().decode()

    def test_good_use(self):
        script = ("i = get(); print(register(i), run(i)); heard.wait(); print(unregister(i)); "
                  "library.AgentSDK_ReleaseInstance(i)")
        with endpoints.open_endpoint(BUILD, scenario.load("completion-delayed")) as endpoint:
            self.assertEqual(self.client(endpoint, script),
                             (0, "0\n0 0\n5 batch 0 False\n0\n", ""))

    def test_misuse_ends_the_process_with_a_message(self):
        with endpoints.open_endpoint(BUILD, scenario.load("healthy")) as endpoint:
            for script, message in MISUSES.items():
                with self.subTest(script=script):
                    status, _, errors = self.client(endpoint, script)
                    self.assertEqual((status, errors), (134, f"stand-in library: {message}\n"))


if __name__ == "__main__":
    unittest.main()
