# The X display's root window saved as a PNG, with nothing but libX11 (no
# screenshot tool needs to be installed): XGetImage, then a plain PNG.
import ctypes
import ctypes.util
import struct
import zlib


class XImage(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int), ("height", ctypes.c_int), ("xoffset", ctypes.c_int),
                ("format", ctypes.c_int), ("data", ctypes.POINTER(ctypes.c_ubyte)),
                ("byte_order", ctypes.c_int), ("bitmap_unit", ctypes.c_int),
                ("bitmap_bit_order", ctypes.c_int), ("bitmap_pad", ctypes.c_int),
                ("depth", ctypes.c_int), ("bytes_per_line", ctypes.c_int),
                ("bits_per_pixel", ctypes.c_int)]


def save_root(display_name, path):
    x = ctypes.cdll.LoadLibrary(ctypes.util.find_library("X11"))
    x.XOpenDisplay.restype = ctypes.c_void_p
    x.XDefaultRootWindow.restype = ctypes.c_ulong
    x.XDefaultRootWindow.argtypes = [ctypes.c_void_p]
    x.XGetImage.restype = ctypes.POINTER(XImage)
    x.XGetImage.argtypes = [ctypes.c_void_p, ctypes.c_ulong, ctypes.c_int, ctypes.c_int, ctypes.c_uint,
                            ctypes.c_uint, ctypes.c_ulong, ctypes.c_int]
    x.XDisplayWidth.argtypes = x.XDisplayHeight.argtypes = [ctypes.c_void_p, ctypes.c_int]
    display = x.XOpenDisplay(display_name.encode())
    if not display:
        raise RuntimeError("cannot open display %s" % display_name)
    width, height = x.XDisplayWidth(display, 0), x.XDisplayHeight(display, 0)
    image = x.XGetImage(display, x.XDefaultRootWindow(display), 0, 0, width, height, 0xFFFFFFFF, 2).contents
    stride = image.bytes_per_line
    raw = ctypes.string_at(image.data, stride * height)
    rows = bytearray()
    for y in range(height):
        line = raw[y * stride:y * stride + width * 4]
        rows.append(0)
        pixels = bytearray(width * 3)
        pixels[0::3] = line[2::4]
        pixels[1::3] = line[1::4]
        pixels[2::3] = line[0::4]
        rows += pixels
    x.XCloseDisplay(ctypes.c_void_p(display))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
                + chunk(b"IDAT", zlib.compress(bytes(rows), 6)) + chunk(b"IEND", b""))
