"""A camera that speaks RTSP on the loopback: rtspserver.py PORT COLOUR [USER PASSWORD]."""
import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402

port, colour, *login = sys.argv[1:]
Gst.init(None)
server = GstRtspServer.RTSPServer()
server.set_address("127.0.0.1")
server.set_service(port)
factory = GstRtspServer.RTSPMediaFactory()
factory.set_launch(f"( videotestsrc is-live=true pattern=solid-color foreground-color={colour} ! "
                   "video/x-raw,format=I420,width=1280,height=720,framerate=15/1 ! "
                   "jpegenc ! rtpjpegpay name=pay0 pt=26 )")
factory.set_shared(True)
if login:
    authority = GstRtspServer.RTSPAuth()
    token = GstRtspServer.RTSPToken()
    token.set_string("media.factory.role", "viewer")
    authority.add_basic(GstRtspServer.RTSPAuth.make_basic(*login), token)
    server.set_auth(authority)
    factory.add_role_from_structure(Gst.Structure.from_string(
        "viewer, media.factory.access=(boolean)true, media.factory.construct=(boolean)true")[0])
server.get_mount_points().add_factory("/camera", factory)
if server.attach(None) == 0:
    sys.exit(f"port {port} is taken")
print("serving", flush=True)
GLib.MainLoop().run()
