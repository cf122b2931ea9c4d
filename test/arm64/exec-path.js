'use strict';
// Preloaded into every node process of npm run test:arm64 (NODE_OPTIONS).
// There the arm64 node runs under user-mode emulation (qemu-aarch64), and
// without binfmt_misc the kernel cannot start that binary again by its own
// path: the test runner's processes for each file and the tests' child
// processes (process.execPath) are started through TARN_TEST_NODE instead,
// a script that runs the same node under the emulator.
if (process.env.TARN_TEST_NODE) process.execPath = process.env.TARN_TEST_NODE;
