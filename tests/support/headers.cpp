// SPDX-License-Identifier: MIT
// The precompiled header of the tests needs a source to belong to.
