"""Disks that can be lost, and whose power can be cut: ext4 in image files, mounted in the scratch folder."""
import glob
import os
import shutil
import subprocess
import time

BYTES = 4 << 30  # an image is sparse: what was never written takes no room


def run(*words):
    done = subprocess.run(words, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(words)}: {(done.stderr or done.stdout).strip()}")


class Volume:
    """One disk. `image` is what has reached the device: writes that only the page cache knows are not in it."""

    def __init__(self, image, place):
        self.image, self.place, self.mounted = image, place, False

    def make(self):
        """A new and empty disk in the place of what was there; with room for many small files, as a node's parts are."""
        with open(self.image, "wb") as file:
            file.truncate(BYTES)
        run("mkfs.ext4", "-q", "-F", "-m", "0", "-i", "2048", "-E", "lazy_itable_init=1,nodiscard", self.image)
        self.mount()

    def mount(self):
        os.makedirs(self.place, exist_ok=True)
        run("mount", "-o", "loop", self.image, self.place)
        self.mounted = True

    def unmount(self):
        if self.mounted:
            run("umount", self.place)
            self.mounted = False

    def replace(self):
        self.put_aside()
        self.make()

    def put_aside(self):
        """The image of the disk that was: removed at the end, as that takes minutes where each extent is discarded."""
        self.unmount()
        os.rename(self.image, f"{self.image}.{time.monotonic_ns()}")

    def remove(self):
        self.unmount()
        for name in glob.glob(self.image + "*"):
            os.remove(name)

    def photograph(self):
        """Copies the image as it is now. Nobody must be writing, so that several disks are copied as of one moment."""
        run("cp", "--sparse=always", self.image, self.image + ".cut")

    def go_on_from_photograph(self):
        """The disk after the cut: its file system is repaired by its journal as at any start."""
        self.put_aside()
        os.rename(self.image + ".cut", self.image)
        checked = subprocess.run(["e2fsck", "-p", self.image], capture_output=True, text=True, check=False)
        if checked.returncode > 1:
            raise RuntimeError(f"{self.image} after the cut of power: {checked.stdout.strip()}")
        self.mount()


def can_mount(folder):
    """Whether disks can be had here; else why not."""
    trial = Volume(os.path.join(folder, "trial.img"), os.path.join(folder, "trial"))
    try:
        trial.make()
        trial.unmount()
        return None
    except (OSError, RuntimeError) as error:
        return str(error)
    finally:
        shutil.rmtree(trial.place, ignore_errors=True)
        if os.path.exists(trial.image):
            os.remove(trial.image)
