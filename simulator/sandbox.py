"""A bubblewrap sandbox around a laid-out file tree.

The root is an empty file system in memory. The tree's own folders and, read-only, what programs
need of the machine are bound into it; the process table is its own.
"""

import os
import pathlib
import shutil
import subprocess

# Where the machine's /usr is to be found a second time, for links from the folders that programs of
# the endpoint's own are added to.
_HOST_USR = "/run/host/usr"
_ISOLATION = (
    "--unshare-user-try", "--unshare-pid", "--unshare-ipc", "--die-with-parent", "--cap-drop", "ALL")
# What programs look for in /etc.
_ETC = ("alternatives", "group", "hosts", "ld.so.cache", "ld.so.conf", "ld.so.conf.d", "localtime",
        "nsswitch.conf", "passwd", "ssl", "timezone")
_USR_LINKS = ("/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32")


def refusal() -> str | None:
    """Why no sandbox can be made on this machine; None when one can."""
    if shutil.which("bwrap") is None:
        return "bubblewrap (bwrap) is not installed"
    probe = subprocess.run(
        ["bwrap", *_ISOLATION, "--ro-bind", "/", "/", "--proc", "/proc", "--dev", "/dev", "true"],
        stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    return None if probe.returncode == 0 else probe.stderr.strip()


def command(root: pathlib.Path, programs: dict[str, pathlib.Path], first: list[str]) -> list[str]:
    """The command that runs `first` in a sandbox with the folders of `root`.

    Folders are bound whole, one level below the root, except those in /etc. `programs` appear at
    their absolute paths, below /usr, in place of or in addition to the machine's.
    """
    words = ["bwrap", *_ISOLATION, *_machine()]
    folders = [root / name for name in sorted(os.listdir(root)) if name != "etc"]
    for folder in [*folders, *sorted((root / "etc").iterdir())]:
        words += ["--bind", str(folder), f"/{folder.relative_to(root)}"]
    words += _with_programs(root, programs)
    return [*words, "--chdir", "/", "--", *first]


def _machine() -> list[str]:
    words = ["--ro-bind", "/usr", "/usr", "--proc", "/proc", "--dev", "/dev"]
    for link in _USR_LINKS:
        path = pathlib.Path(link)
        if path.is_symlink():
            words += ["--symlink", os.readlink(path), link]
        elif path.exists():
            words += ["--ro-bind", link, link]
    for name in _ETC:
        words += ["--ro-bind-try", f"/etc/{name}", f"/etc/{name}"]
    return words


def _with_programs(root: pathlib.Path, programs: dict[str, pathlib.Path]) -> list[str]:
    """Covers the programs' folders by folders of links to the machine's, with the programs added.

    A folder of /usr itself cannot get another entry, being bound read-only.
    """
    if not programs:
        return []
    words = ["--ro-bind", "/usr", _HOST_USR]
    for folder in sorted({os.path.dirname(path) for path in programs}):
        merged = root / "run" / "programs" / folder.lstrip("/")
        merged.mkdir(parents=True)
        own = {os.path.basename(path): program for path, program in programs.items()
               if os.path.dirname(path) == folder}
        for name in set(os.listdir(folder)) - set(own):
            (merged / name).symlink_to(_HOST_USR + folder.removeprefix("/usr") + "/" + name)
        for name, program in own.items():
            shutil.copy(program, merged / name)
        words += ["--ro-bind", str(merged), folder]
    return words


def remove_tree(path: pathlib.Path) -> None:
    """Removes whatever is at `path`, also below folders that may not be entered."""
    def open_up(function, name, _):
        os.chmod(os.path.dirname(name), 0o700)
        function(name)

    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path, onerror=open_up)
    else:
        path.unlink(missing_ok=True)
