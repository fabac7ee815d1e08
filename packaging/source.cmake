# SPDX-License-Identifier: MIT
# The source tarball: SOURCE=FOLDER VERSION=0.2.0 cpack --config packaging/source.cmake -B OUT
set(CPACK_GENERATOR TGZ)
set(CPACK_PACKAGE_NAME quorel)
set(CPACK_PACKAGE_VENDOR "the QUOREL authors")
set(CPACK_PACKAGE_DESCRIPTION "7.1 sound for headphones, and a clean microphone")
set(CPACK_PACKAGE_VERSION $ENV{VERSION})
set(CPACK_PACKAGE_FILE_NAME quorel-$ENV{VERSION})
set(CPACK_INSTALLED_DIRECTORIES $ENV{SOURCE} /)
set(CPACK_IGNORE_FILES "^$ENV{SOURCE}/build/;/\\\\.git$;/\\\\.git/;/__pycache__/;\\\\.pyc$;\\\\.orig$;\\\\.rej$")
set(CPACK_SET_DESTDIR OFF)
