"""Makes the wheel, from a folder that makewheel.py has put together: the package, with the libraries in kestova/lib."""

import os
from sysconfig import get_platform
from typing import Any, Tuple

from setuptools import Distribution, setup
from wheel.bdist_wheel import bdist_wheel


class PlatformDistribution(Distribution):  # type: ignore[misc]
    def has_ext_modules(self) -> bool:
        return True  # the libraries


class PlatformWheel(bdist_wheel):  # type: ignore[misc]
    """Any Python 3 of this platform: ctypes calls the libraries."""

    def get_tag(self) -> Tuple[str, str, str]:
        return "py3", "none", get_platform().replace("-", "_").replace(".", "_")


def make(**more: Any) -> None:
    setup(
        name="kestova",
        version=os.environ["KESTOVA_VERSION"],
        description="Recordings of marine radar traffic as NumPy arrays",
        packages=["kestova"],
        package_data={"kestova": ["py.typed", "lib/*"]},
        python_requires=">=3.9",
        extras_require={"arrays": ["numpy"], "plot": ["matplotlib"]},
        zip_safe=False,
        distclass=PlatformDistribution,
        cmdclass={"bdist_wheel": PlatformWheel},
        **more,
    )


if __name__ == "__main__":
    make()
