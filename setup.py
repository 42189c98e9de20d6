"""Installs the Python module: `pip install --no-build-isolation .`

The extension (sigfile._core) is built by the project's CMake build, for the
interpreter that runs pip, then placed beside the package's Python files.
"""
import os
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = Path(self.build_temp).resolve() / "cmake"
        env = dict(os.environ)
        env.setdefault("CCACHE_BASEDIR", str(ROOT))
        env.setdefault("CCACHE_NOHASHDIR", "true")
        subprocess.run(["cmake", "-S", str(ROOT), "-B", str(build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                        "-DSIGFILE_BUILD_TESTS=OFF", "-DSIGFILE_BUILD_BENCH=OFF",
                        f"-DPython3_EXECUTABLE={sys.executable}"], check=True, env=env)
        subprocess.run(["cmake", "--build", str(build), "--target", "sigfile_python"], check=True, env=env)
        built = next((build / "python" / "sigfile").glob("_core*.so"))
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(built, target)


setup(
    name="sigfile",
    version="1.0.0",
    description="EEG and polysomnography recordings: open, read, convert, create (native, EDF, BDF ...)",
    license="MIT",
    python_requires=">=3.9",
    install_requires=["numpy"],
    extras_require={"mne": ["mne"], "pandas": ["pandas"]},
    package_dir={"": "python"},
    packages=["sigfile"],
    ext_modules=[Extension("sigfile._core", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    zip_safe=False,
)
