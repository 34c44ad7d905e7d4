"""A machine that boots: systemd as process 1 in namespaces of its own, on an overlay of this machine's files.

It shares the network with this machine, and nothing that it writes stays. Needs root.
"""
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile

from room import BUILD, await_true

# In the first mount namespace: the overlay. In the second, with all the others: what systemd wants to find.
OVERLAY = r"""
set -eu
mount -t tmpfs tmpfs "$1"
mkdir "$1/upper" "$1/work" "$1/machine"
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" "$1/machine"
# A machine on which nothing of ours was ever installed or enabled.
rm -rf "$1"/machine/etc/systemd/system/* "$1"/machine/etc/aiservice "$1"/machine/var/lib/aiservice \
    "$1/machine/etc/machine-id"
touch "$1/machine/etc/machine-id"
mkdir -p "$1/machine/packages" "$1/machine/usr/share/doc/opencv-doc/opencv4"
cp "$2"/*.deb "$1/machine/packages"
cp -r "$3" "$1/machine/usr/share/doc/opencv-doc/opencv4/html"
exec unshare --mount --pid --uts --ipc --cgroup --fork --kill-child sh -c "$4" sh "$1/machine"
"""
INIT = r"""
set -eu
mount -t proc proc "$1/proc"
mount -t sysfs sysfs "$1/sys"
mount -t tmpfs tmpfs "$1/run"
mount -t tmpfs tmpfs "$1/tmp"
mkdir -p "$1/sys/fs/cgroup"
mount -t tmpfs tmpfs "$1/sys/fs/cgroup" || true
mount -t cgroup2 cgroup2 "$1/sys/fs/cgroup"
mount --rbind /dev "$1/dev"
hostname room
exec env -i container=other PATH=/usr/sbin:/usr/bin:/sbin:/bin chroot "$1" /lib/systemd/systemd --system \
    --unit=multi-user.target --show-status=no </dev/null
"""
PHOTOGRAPHS = BUILD / "opencv-doc/usr/share/doc/opencv-doc/opencv4/html"


class BootedRoom:
    """A booted machine with the packages installed; begin() makes a room on it."""

    name = "101"
    units = {"camera": "camerafeed", "service": "aiservice", "bridge": "aibridge"}

    def __enter__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="boot-"))
        if os.geteuid() != 0:
            raise AssertionError("only root can boot a machine in namespaces")
        subprocess.run(["cpack", "--config", BUILD / "CPackConfig.cmake", "-G", "DEB", "-B", BUILD / "packages"], check=True,
                       stdout=subprocess.DEVNULL)
        # What unshare says when its process is killed is no news.
        self.errors = open(self.folder / "errors", "w+", encoding="utf-8")
        self.outer = subprocess.Popen(["unshare", "--mount", "--propagation", "private", "sh", "-c", OVERLAY, "sh",
                                       str(self.folder), str(BUILD / "packages"), str(PHOTOGRAPHS), INIT],
                                      stdin=subprocess.DEVNULL, stderr=self.errors)
        self.init = None
        try:
            self.boot()
        except BaseException:
            self.__exit__()
            raise
        return self

    def boot(self):
        self.init = await_true(self.find_init, self.must_live)
        await_true(lambda: self.run("systemctl", "is-system-running", check=False).stdout.strip() in
                   ("running", "degraded"), self.must_live)
        self.run("sh", "-c", "apt-get install -y --no-install-recommends "
                 "/packages/aiservice_*.deb /packages/aiservice-bridge_*.deb")

    def __exit__(self, *_):
        # Process 1 of the namespace takes all others along.
        if self.init:
            os.kill(self.init, signal.SIGKILL)
        else:
            self.outer.kill()
        self.outer.wait()
        self.errors.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def must_live(self):
        if self.outer.poll() is not None:
            self.errors.seek(0)
            raise AssertionError(f"the machine does not boot: {self.errors.read()}")

    def find_init(self):
        """The process of ours that is the first one in its namespace and has become systemd."""
        for status in pathlib.Path("/proc").glob("[0-9]*/status"):
            try:
                fields = dict(line.split(":\t", 1) for line in status.read_text().splitlines() if ":\t" in line)
                if (fields["Name"] == "systemd" and fields["NSpid"].split()[1:] == ["1"]
                        and int(fields["PPid"]) == self.outer.pid):
                    return int(fields["Pid"])
            except (OSError, KeyError):
                continue
        return None

    def run(self, *command, check=True, **options):
        done = subprocess.run(["nsenter", "-t", str(self.init), "-m", "-p", "-u", "-i", "-C", "-r", "-w", *command],
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False, **options)
        if check and done.returncode != 0:
            raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}{done.stderr}")
        return done

    def begin(self, port):
        """As a user would: the command makes the file, the file is edited, the command starts the room."""
        self.run("aiservice-room", self.name)
        self.run("sh", "-c", f"cat >/etc/aiservice/{self.name}.conf <<'TEXT'\n"
                 f"[room]\nschool = north\nroom = {self.name}\n[camera]\naddress = demo\n"
                 f"[run]\nanalyses = hands\nsilence = 8\npatience = 10\n[broker]\nhost = 127.0.0.1\nport = {port}\nTEXT")
        self.run("aiservice-room", self.name)

    def kill(self, name):
        self.run("systemctl", "kill", "--kill-whom=main", "--signal=KILL", f"{self.units[name]}@{self.name}.service")

    def property(self, name, key):
        return self.run("systemctl", "show", "--value", "-p", key, f"{self.units[name]}@{self.name}.service").stdout.strip()
