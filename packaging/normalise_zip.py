"""Makes the bytes of a ZIP depend on its files' names and contents only: normalise_zip.py FILE
The entries are sorted; each has the time of SOURCE_DATE_EPOCH (or of 1980), and the same permissions."""
import os
import sys
import time
import zipfile

EARLIEST = 315532800  # 1980, where a ZIP's time begins


def main(path):
    moment = time.gmtime(max(int(os.environ.get("SOURCE_DATE_EPOCH", "0")), EARLIEST))[:6]
    with zipfile.ZipFile(path) as archive:
        files = {info.filename: archive.read(info) for info in archive.infolist() if not info.is_dir()}
    with zipfile.ZipFile(path + ".new", "w") as archive:
        for name in sorted(files):
            entry = zipfile.ZipInfo(name, moment)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.create_system = 3  # the permissions are those of Unix
            entry.external_attr = 0o100644 << 16
            archive.writestr(entry, files[name], compresslevel=9)
    os.replace(path + ".new", path)


main(sys.argv[1])
