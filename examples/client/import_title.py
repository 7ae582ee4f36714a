#!/usr/bin/env python3
"""Imports a file through the ulvekbotd64 service with ctypes over the C API; prints its title.

    import_title.py FILE [HELPER]    (HELPER: a daemon to start; default: the installed one)
"""
import ctypes, ctypes.util, os, sys

lib = ctypes.CDLL(os.environ.get("ULVEKBOT_CLIENT_LIBRARY") or ctypes.util.find_library("ulvekbot-client"))
lib.ulvekbot_client_new.restype = ctypes.c_void_p
lib.ulvekbot_client_new.argtypes = [ctypes.c_char_p]
lib.ulvekbot_client_free.argtypes = [ctypes.c_void_p]
lib.ulvekbot_client_error_message.restype = ctypes.c_char_p
lib.ulvekbot_client_error_message.argtypes = [ctypes.c_void_p]
lib.ulvekbot_client_import_file.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p)]
lib.ulvekbot_result_string.restype = ctypes.c_char_p
lib.ulvekbot_result_string.argtypes = [ctypes.c_void_p, ctypes.c_char_p]
lib.ulvekbot_result_free.argtypes = [ctypes.c_void_p]

client = lib.ulvekbot_client_new(sys.argv[2].encode() if len(sys.argv) > 2 else None)
result = ctypes.c_void_p()
if lib.ulvekbot_client_import_file(client, os.path.abspath(sys.argv[1]).encode(), ctypes.byref(result)) != 0:
    sys.exit(f"{sys.argv[1]}: {lib.ulvekbot_client_error_message(client).decode()}")
title = lib.ulvekbot_result_string(result, b"Title")
print(f"{sys.argv[1]}: {title.decode() if title else '(no title)'}")
lib.ulvekbot_result_free(result)
lib.ulvekbot_client_free(client)
