"""Programs on the simulated host, and never beside it: run_test.py SOURCE_DIR BIN_DIR LIBRARY 0|1

The last says whether the build has sanitizers."""

import json
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import unittest

from tools_support import BIN, LAB, SOURCE, ToolCase, main

LIBRARY, SANITIZED = sys.argv[3], sys.argv[4] == "1"
HOST, CTL = BIN / "varnok-host", BIN / "varnokctl"
OBJECT = next(folder / "varnok-hostsim.so" for folder in (BIN.parent / "lib", BIN) if (folder / "varnok-hostsim.so").exists())
NOT_SANITIZED = unittest.skipIf(SANITIZED, "Python cannot load a library with sanitizers")
PLAIN = {**os.environ, "ASAN_OPTIONS": "verify_asan_link_order=0"}
INSIDE = [sys.executable, "-B", SOURCE / "tests/tools/run_inside.py", LIBRARY]
DISK = {"ports": [{"driver": "dxo", "sessions": [{"luns": [{"size": "1 MiB"}]}]}, {"driver": "rovani"}]}


class RunTest(ToolCase):
    def host(self, *arguments, program=HOST, **settings):
        return subprocess.run([program, *arguments], **{"capture_output": True, "text": True, "check": False, "timeout": 60,
                                                        "env": PLAIN, **settings})

    def refused(self, reason, *arguments, status=127, **settings):
        result = self.host(*arguments, **settings)
        self.assertEqual((result.returncode, result.stdout), (status, ""), result)
        *loader, line = result.stderr.splitlines()
        self.assertTrue(line.startswith("varnok-host: ") and reason in line, result.stderr)
        self.assertTrue(line.isprintable() and all("ld.so" in text for text in loader), result.stderr)

    def inside(self, what, scenario, **settings):
        result = self.host("run", scenario, "--", *INSIDE, what, **settings)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_what_cannot_take_the_simulation_does_not_run(self):
        folder = self.folder()
        true = bytearray(pathlib.Path(shutil.which("true")).resolve().read_bytes())
        table, size = struct.unpack_from("<Q", true, 32)[0], struct.unpack_from("<H", true, 54)[0]
        kinds = [struct.unpack_from("<I", true, table + i * size)[0] for i in range(struct.unpack_from("<H", true, 56)[0])]
        interpreter = table + kinds.index(3) * size
        name = struct.unpack_from("<Q", true, interpreter + 8)[0]
        files = {}
        for what, at in [("good", None), ("static", interpreter), ("machine", 18), ("class", 4), ("loader", name + 4)]:
            files[what] = folder / what
            files[what].write_bytes(true if at is None else true[:at] + b"\1" + true[at + 1:])
        files["short"] = folder / "short"
        files["short"].write_bytes(true[:40])
        for what, line in [("script", f"#! {files['good']} -x"), ("nested", f"#!{folder}/bad_script\n"),
                           ("bad_script", f"#!{files['static']}"), ("lost", "#!/no/such\n"), ("plain", "exit 0\n")]:
            files[what] = folder / what
            files[what].write_text(line)
        for file in files.values():
            file.chmod(0o755)
        (folder / "data").write_text("x")
        cases = [("good", ""), ("script", ""), ("plain", ""), ("static", "statically linked"), ("nested", "statically linked"),
                 ("machine", "another machine"), ("class", "another machine"), ("short", "another machine"),
                 ("loader", "its loader is"), ("lost", "its interpreter /no/such: No such file"), ("none", "No such file"),
                 ("data", "Permission denied"), (".", "Permission denied")]
        try:
            os.chown(files["good"], 1, 1)
            files["rights"] = shutil.copy(files["good"], folder / "rights")
            os.chown(folder / "rights", 1, 1)
            (folder / "rights").chmod(0o4755)
            cases.append(("rights", "rights that you do not have"))
        except OSError:
            pass  # there is no other user
        for what, reason in cases:
            with self.subTest(what):
                if reason:
                    self.refused(reason, "run", LAB, "--", folder / what)
                else:
                    self.assertEqual(self.host("run", LAB, "--", what, env={**PLAIN, "PATH": f"/no:{folder}"}).returncode, 0)

    def test_the_object_is_loaded_or_nothing_runs(self):
        for name, contents, reason in [("a b", None, "blank"), ("a:b", None, "colon"), ("$LIB", None, "dollar"),
                                       ("empty", b"", "file too short"), ("wrong", b"x" * 5000, "invalid ELF header")]:
            prefix = self.folder() / name
            for part in ("bin", "lib"):
                (prefix / part).mkdir(parents=True)
            shutil.copy(HOST, prefix / "bin")
            shutil.copy(OBJECT, prefix / "lib")
            if contents is not None:
                (prefix / "lib" / OBJECT.name).write_bytes(contents)
            self.refused(reason, "run", LAB, "--", "echo", "ran", program=prefix / "bin/varnok-host")

    def test_without_a_scenario_nothing_runs(self):
        wrong, hostile = self.scenario({"ports": [{}]}), '{"\x1b[2J":1}'
        for value, reason in [(None, "VARNOK_HOST_SCENARIO: not set"), ("/no/such", "/no/such: No such file"), ("", "parse error"),
                              ("lab.json", "parse error"), (wrong, f"{wrong}: ports[0]: driver is missing"), (hostile, "HOST_SCENARIO: "),
                              ("/proc/self/fd/1", "Put it in a file")]:
            environment = {**PLAIN, "LD_PRELOAD": str(OBJECT), **({} if value is None else {"VARNOK_HOST_SCENARIO": value})}
            with self.subTest(value):
                self.refused(reason, "--help", program=CTL, env=environment)
                self.assertEqual(self.host("ran", program="/bin/echo", env=environment).stdout, "ran\n")
                if not SANITIZED:
                    result = subprocess.run([*INSIDE, "late"], env=environment, capture_output=True, text=True, check=False)
                    self.assertEqual((result.returncode, result.stdout), (127, "loaded "), result.stderr)
        gone = self.scenario({})
        result = self.host("run", gone, "--", "sh", "-c", f"mv {gone} {gone}.x; {CTL} ports; mv {gone}.x {gone}; exit $?")
        self.assertIn("No such file", result.stderr)

    def test_documents_that_are_read_once(self):
        folder = self.folder()
        text = json.dumps({**DISK, "ports": [{"driver": "dxo", "sessions": [{"luns": [{"size": "1 MiB", "file": "disk"}]}]}]})
        shell = 'cd /; exec "$0" luns --bytes; '
        for start in ("", "\n \n", "\ufeff", "// x\n", "/* x */", "//" + 200000 * "x" + "\n"):
            for source in ("-", "/dev/stdin", "/dev/fd/0"):
                result = self.host("run", source, "--", "sh", "-c", f"cat; {shell}", CTL, input=start + text, cwd=folder)
                self.assertEqual(result.returncode, 0, result)
                self.assertIn("1048576", result.stdout)
                self.assertEqual((folder / "disk").stat().st_size, 1 << 20)
            self.assertEqual(self.host("check", "-", input=start + text, cwd=folder).returncode, 0)
        pipe = subprocess.run(["bash", "-c", '"$0" run <(echo "$1") -- "$2" ports --json', HOST, json.dumps(DISK), CTL],
                              env=PLAIN, capture_output=True, check=False)
        self.assertEqual(pipe.returncode, 0, pipe.stderr)
        self.refused("standard input: x: unknown field", "check", "-", input='{"x":1}', status=2)
        self.refused("Put it in a file", "run", "-", "--", "bash", "-c", f"exec {{VARNOK_HOST_SCENARIO##*/}}>&-; exec {CTL} ports".replace(
            "exec {VARNOK_HOST_SCENARIO##*/}", 'eval "exec ${VARNOK_HOST_SCENARIO##*/}>&-"; :'), input=" " * 200000 + text)

    def test_messages_of_the_command_line(self):
        for reason, arguments in [('the program comes after "--"', ["run", LAB, "varnokctl", "tree"]),
                                  ('the program comes after "--"', ["run", LAB, "ls", "-l"]), ('comes after "--"', ["run", LAB]),
                                  ('comes after "--"', ["run", "--portal", "127.0.0.1:1", "varnokctl"]),
                                  ("--nothing", ["run", "--nothing", LAB]), ("no such command: x", ["x"]), ("required", []),
                                  ("1 to 3600", ["run", "--timeout", "0", LAB, "--", "true"]), ("x\\x1B", ["check", "x\x1b"])]:
            self.refused(reason, *arguments, status=2)
        versions = [self.host("--version", program=tool).stdout.split()[1] for tool in (HOST, CTL)]
        self.assertEqual(versions[0], versions[1])
        for options, expected in [([], "5 -"), (["--timeout", "7", "--lsof"], "7 1")]:
            output = self.host("run", *options, LAB, "--", "sh", "-c", "echo $VARNOK_HOST_TIMEOUT ${VARNOK_HOST_LSOF--}").stdout
            self.assertEqual(output, expected + "\n")

    @NOT_SANITIZED
    def test_bad_pointers(self):
        self.inside("pointers", self.scenario(DISK))

    @NOT_SANITIZED
    def test_threads_and_forks(self):
        self.inside("forks", self.scenario(DISK))

    @NOT_SANITIZED
    def test_users_are_counted_as_lsof_counts_them(self):
        folder = self.folder()
        copies = [str(shutil.copy(LIBRARY, folder / name)) for name in ("libvarnok.1", "libvarnok.2")]
        echo = shutil.copy(shutil.which("cat"), folder / "libvarnokd")
        # The result is half the number of lines: what adds one comes twice.
        orders = [f"open {copies[0]} {copies[1]}", "map 0 1 0 1", f"remove {copies[0]} {copies[1]}", f"start {echo}", "thread"]
        for number in range(1, 4):
            user = subprocess.Popen([HOST, "run", LAB, "--", *INSIDE, "count"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                    text=True, env=PLAIN)
            self.addCleanup(user.communicate)
            self.addCleanup(user.kill)
            for order in ["nothing", *(orders if number == 3 else [])]:
                user.stdin.write(order + "\n")
                user.stdin.flush()
                own, real = map(int, user.stdout.readline().split())
                self.assertEqual(own, real, order)
                self.assertTrue(own == number or order != "nothing", own)


if __name__ == "__main__":
    main()
