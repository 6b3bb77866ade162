"""`quenbyctl apply` and `confirm`: a change is made whole, or files and kernel are what they were."""

import json
import os
import pathlib
import pty
import signal
import subprocess
import time

import surroundings as s
import applying as a
from applying import AFTER, KEPT, LOCK, NOTE, OLD, ApplyTest, apply, confirm

TAKEN_BACK = "quenbyctl: taken back: files and kernel are the former ones\n"
WAITING = "applied; taken back in %d s unless \"quenbyctl confirm\" comes\n"


class Made(ApplyTest):
    def test_each_command(self):
        for command, text, after in (
                ("tariff-add", a.NEW, AFTER), ("tariff-update", s.tariff("a", speed=7),
                                               s.tariff("a", 4, speed=7)),
                ("update", a.NEW, s.tariff("n", 5)), ("load", None, OLD)):
            self.restore()
            arguments = [command] if text is None else [command, s.given(text)]
            self.assertEqual(apply(*arguments), s.Result(0, "applied\n", ""))
            self.expect_files(after)
            self.assertEqual(NOTE.read_text(), "--%s\n" % command)
        self.assertEqual(apply("tariff-del", "a"), s.Result(0, "applied\n", ""))
        self.assertEqual(s.names_in(s.FOLDER), ["tc_global.ini"])
        line = "[global]\nwan=eth9\nenabled=false\n"
        self.assertEqual(apply("global-update", s.given(line)), s.Result(0, "applied\n", ""))
        self.assertEqual(s.content(s.GLOBAL_FILE), line)

    def test_without_a_tariff_file(self):
        self.store(tariff_text=None)
        self.assertEqual(apply("update", str(s.GIVEN)), s.Result(0, "applied\n", ""))
        self.assertEqual(s.content(s.TARIFF_FILE), s.tariff("n", 4))

    def test_what_is_left(self):
        self.add()
        a.settle()
        self.assertEqual(s.names_in("/run"), ["quenby.lock", "quenby.on"])
        for path in (LOCK, NOTE):
            self.assertEqual(path.stat().st_mode & 0o77, 0 if path == LOCK else 0o44)

    def test_json(self):
        self.assertEqual(a.apply_json("tariff-add", str(s.GIVEN)), (0, {
            "outcome": "applied", "command": "tariff-add /given.ini", "reason": None,
            "differences": [], "seconds": None}))

    def test_the_program_has_the_lock(self):
        a.write_program("flock --nonblock %s true && echo free || echo held" % LOCK)
        self.assertEqual(self.add(), s.Result(0, "applied\n", "held\n"))

    def test_the_program_is_not_the_terminals(self):
        a.write_program("kill -INT $$", "kill -HUP $$", "kill -PIPE $$", "echo lived")
        self.assertEqual(self.add(), s.Result(0, "applied\n", "lived\n"))


class Refused(ApplyTest):
    def refused(self, result, *arguments):
        before = s.state(), NOTE.read_text()
        self.assertEqual(apply(*arguments), result)
        self.assertEqual((s.state(), NOTE.read_text()), before)
        self.assertEqual(a.ran(), [])

    def test_as_the_program_does(self):
        a.write_program()
        says = "quenbyctl: quenby refuses this: "
        self.refused(s.Result(1, "", says + "tariff does not exist\n"), "tariff-del", "x")
        self.refused(s.Result(1, "", says + "wrong tariff configuration\n"
                              '/given.ini:1:1: no "=" in this line\n'),
                     "tariff-add", s.given("x"))
        status, found = a.apply_json("tariff-del", "x")
        self.assertEqual((status, found["outcome"], found["reason"]),
                         (1, "refused", "tariff does not exist"))

    def test_wrong_calls(self):
        a.write_program()
        for arguments, text in ((["tariff-add"], "apply tariff-add needs an argument"),
                                (["load", "x"], "apply load takes no argument"),
                                (["update", "/dev/null"],
                                 "/dev/null is not a regular file: it is read twice")):
            self.refused(s.Result(2, "", "quenbyctl: %s\n" % text), *arguments)
        for arguments in ([], ["stop"], ["--confirm", "0", "load"], ["--confirm", "x", "load"],
                          ["--when-due"], ["--take-back", "load"], ["--when-due", "load"],
                          ["--take-back", "--confirm", "5"], ["tariff-del", "a", "b"]):
            with self.subTest(arguments):
                self.assertEqual(apply(*arguments).status, 2)
        self.assertEqual(a.ran(), [])

    def test_not_by_root(self):
        powerless = ("setpriv", "--bounding-set=-all", "--inh-caps=-all")
        pathlib.Path("/run").chmod(0o555)
        result = apply("load", wrapper=powerless)
        self.assertEqual(result, s.Result(
            2, "", "quenbyctl: cannot open /run/quenby.lock: Permission denied\n"))

    def test_a_stored_file_that_is_none(self):
        a.write_program()
        s.TARIFF_FILE.unlink()
        s.TARIFF_FILE.symlink_to(s.GIVEN)
        s.given(OLD)
        result = apply("load")
        self.assertEqual((result.status, a.ran(), NOTE.read_text()), (2, [], "--load\n"), result)
        self.assertIn("is not a regular file: no other is kept", result.err)
        self.assertEqual(s.names_in(s.FOLDER), ["tc_global.ini", "tc_tariff.ini"])

    def test_a_folder_in_the_way(self):
        KEPT.mkdir()
        (KEPT / "mine").write_text("x")
        result = self.add()
        self.assertEqual(result.status, 2)
        self.assertIn("tc_kept", result.err)
        self.assertEqual((KEPT / "mine").read_text(), "x")
        self.assertEqual(s.content(s.TARIFF_FILE), OLD)

    def test_without_room_to_keep_them(self):
        self.config_disk("12k")
        self.restore()
        (s.FOLDER / "filler").write_text("x" * 4096)
        result = self.add()
        self.assertEqual(result.status, 2)
        self.assertIn("No space left on device", result.err)
        self.assertEqual(s.names_in(s.FOLDER), ["filler", "tc_global.ini", "tc_tariff.ini"])

    def test_no_program(self):
        pathlib.Path("/quenby").unlink()
        result = self.add()
        self.assertEqual((result.status, result.err), (1, "quenbyctl: quenby is not installed\n" + TAKEN_BACK))
        self.expect_files(OLD)


class TakenBack(ApplyTest):
    SPOIL = ("[ $1 = --tariff-add ] || exit 0", "echo x >>%s" % s.TARIFF_FILE,
             "rm %s" % s.GLOBAL_FILE)

    def test_the_program_fails(self):
        for end, reason in (("exit 1", "quenby has failed with status 1"),
                            ("exit 3", "quenby has failed with status 3"),
                            ("kill -KILL $$", "quenby was ended by signal 9")):
            self.restore()
            a.write_program(*self.SPOIL, "echo Error: no >&2", end)
            self.assertEqual(self.add(), s.Result(
                1, "", "Error: no\nquenbyctl: %s\n%s" % (reason, TAKEN_BACK)))
            self.expect_files(OLD)
            self.assertTrue(NOTE.exists())

    def test_json(self):
        a.write_program(*self.SPOIL, "exit 1")
        self.assertEqual(a.apply_json("tariff-add", str(s.GIVEN)), (1, {
            "outcome": "taken back", "command": "tariff-add /given.ini", "differences": [],
            "reason": "quenby has failed with status 1", "seconds": None}))

    def test_a_file_that_was_not_there(self):
        self.store(None, None)
        a.write_program("echo x >%s" % s.TARIFF_FILE, "exit 1")
        self.assertEqual(self.add().status, 1)
        self.assertEqual(s.names_in(s.FOLDER), [])

    def test_on_a_full_disk(self):
        a.write_program(*self.SPOIL, "cat /dev/zero >%s/filler 2>/dev/null" % s.FOLDER, "exit 1")
        self.assertEqual(self.add().status, 1)
        self.assertEqual(s.content(s.TARIFF_FILE), OLD)
        self.assertEqual(s.names_in(s.FOLDER), ["filler", "tc_global.ini", "tc_tariff.ini"])

    def test_no_shaping_was_wanted(self):
        """What somebody has stopped is off again."""
        NOTE.unlink()
        s.GLOBAL_FILE.write_text("[global]\nenabled=true\nwan=eth9\nupload_speed=1\n")
        line = s.content(s.GLOBAL_FILE)
        a.write_program(*self.SPOIL, "exit 1")
        self.assertEqual(self.add().status, 1)
        self.assertEqual((s.content(s.TARIFF_FILE), s.content(s.GLOBAL_FILE)), (OLD, line))
        self.assertFalse(NOTE.exists())
        self.assertEqual(a.ran()[-1], "--stop")

    def test_keys_of_the_terminal(self):
        for key in (signal.SIGINT, signal.SIGTERM, signal.SIGQUIT):
            self.restore()
            a.RAN.unlink(missing_ok=True)
            a.write_program(a.MAKE, "sleep 0.3")
            process = a.begin("tariff-add", str(s.GIVEN), start_new_session=True)
            a.wait_for(a.ran)
            # The keys go to all that is in the foreground.
            (os.kill if key == signal.SIGTERM else os.killpg)(process.pid, key)
            self.assertEqual(a.ended(process), s.Result(1, "", "quenbyctl: interrupted by %s\n%s" % (
                key.name, TAKEN_BACK)))
            self.expect_files(OLD)

    def test_the_command_is_killed(self):
        """The program goes on to its end, then the change is taken back."""
        a.write_program(*self.SPOIL, "sleep 0.3", "touch /run/ended")
        process = a.begin("tariff-add", str(s.GIVEN))
        a.wait_for(a.ran)
        process.kill()
        a.ended(process)
        a.settle()
        self.assertTrue(pathlib.Path("/run/ended").exists())
        self.expect_files(OLD)

    def test_its_session_is_killed(self):
        """With all that is in the foreground."""
        a.write_program(*self.SPOIL, "sleep 5")
        process = a.begin("tariff-add", str(s.GIVEN), start_new_session=True)
        a.wait_for(a.ran)
        os.killpg(process.pid, signal.SIGKILL)
        a.ended(process)
        a.settle()
        self.expect_files(OLD)

    def test_what_a_program_that_has_ended_leaves_is_not_waited_for_for_ever(self):
        """A daemon that a script of the platform has started, for example."""
        a.write_program(a.MAKE, "sleep 40 >/dev/null 2>&1 &")
        begin = time.monotonic()
        result = self.add()
        self.assertEqual((result.status, result.out), (0, "applied\n"), result)
        self.assertEqual(result.err, "quenbyctl: quenby has left processes behind, which go on\n")
        self.assertLess(time.monotonic() - begin, 30)
        names = [pathlib.Path("/proc/%d/comm" % number).read_text() for number in a.children()]
        self.assertIn("sleep\n", names)

    def test_a_child_of_a_program_that_has_ended_is_waited_for_a_while(self):
        a.write_program(a.MAKE, "(sleep 0.5; touch /run/late) >/dev/null 2>&1 &")
        self.assertEqual(self.add(), s.Result(0, "applied\n", ""))
        self.assertTrue(pathlib.Path("/run/late").exists())

    def test_a_child_of_a_killed_program_is_waited_for(self):
        a.write_program(*self.SPOIL, "(sleep 0.3; echo late >>%s) &" % s.TARIFF_FILE, "kill -KILL $$")
        self.assertEqual(self.add().status, 1)
        time.sleep(0.4)
        self.expect_files(OLD)


class Terminal(ApplyTest):
    def test_its_loss_changes_nothing(self):
        a.write_program("sleep 0.3", "echo said", a.MAKE)
        pid, terminal = pty.fork()
        if pid == 0:
            os.execv("/quenbyctl", ["quenbyctl", "apply", "tariff-add", str(s.GIVEN)])
        a.wait_for(a.ran)
        os.close(terminal)
        a.settle()
        self.expect_files(AFTER)

    def test_nor_does_that_of_a_reader(self):
        a.write_program("sleep 0.3", "echo said", a.MAKE)
        process = a.begin("tariff-add", str(s.GIVEN))
        a.wait_for(a.ran)
        process.stdout.close()
        process.stderr.close()
        process.wait()
        a.settle()
        self.expect_files(AFTER)


class Lock(ApplyTest):
    def test_says_whom_it_waits_for(self):
        with a.locked():
            process = a.begin("tariff-add", str(s.GIVEN))
            said = process.stderr.readline()
        self.assertRegex(said, r"\Aquenbyctl: waiting for process %d \(.*python3.*\)\n\Z" % os.getpid())
        self.assertEqual(a.ended(process), s.Result(0, "applied\n", ""))

    def test_a_process_that_was_given_the_lock(self):
        """As the launcher's program is: the process that took it has ended."""
        holder = subprocess.Popen(
            ["bash", "-c", "exec {f}<>%s; flock $f; exec -a 'quenby --load' sleep 100" % LOCK])
        a.wait_for(lambda: pathlib.Path("/proc/%d/cmdline" % holder.pid).read_bytes().startswith(
            b"quenby --load\0"))
        process = a.begin("tariff-add", str(s.GIVEN))
        said = process.stderr.readline()
        holder.kill()
        holder.wait()
        self.assertEqual(said, "quenbyctl: waiting for process %d (quenby --load 100)\n" % holder.pid)
        self.assertEqual(a.ended(process), s.Result(0, "applied\n", ""))

    def test_is_for_root_alone(self):
        os.umask(0)
        self.addCleanup(os.umask, 0o022)
        self.add()
        self.assertEqual(LOCK.stat().st_mode & 0o777, 0o600)

    def test_files_are_read_under_it(self):
        with a.locked():
            process = a.begin("tariff-del", "late")
            process.stderr.readline()
            s.TARIFF_FILE.write_text(OLD + s.tariff("late", 9))
        self.assertEqual(a.ended(process), s.Result(0, "applied\n", ""))
        self.expect_files(OLD)


class Confirmation(ApplyTest):
    def begin(self, seconds=100):
        self.assertEqual(self.add("--confirm", str(seconds)), s.Result(0, WAITING % seconds, ""))

    def test_comes(self):
        self.begin()
        self.assertEqual(s.content(s.TARIFF_FILE), AFTER)
        self.assertEqual(confirm(), s.Result(0, "confirmed\n", ""))
        self.expect_files(AFTER)
        # What watches sees it soon.
        a.settle()
        self.assertEqual(confirm(), s.Result(1, "", "quenbyctl: no change waits\n"))
        self.expect_files(AFTER)

    def test_does_not_come(self):
        self.begin(1)
        a.settle()
        self.expect_files(OLD)
        self.assertEqual(confirm(), s.Result(1, "", "quenbyctl: no change waits\n"))

    def test_json(self):
        status, found = a.apply_json("--confirm", "100", "tariff-add", str(s.GIVEN))
        self.assertEqual((status, found["outcome"], found["seconds"]), (0, "waiting", 100))
        self.assertEqual(json.loads(confirm("--json").out)["outcome"], "confirmed")
        self.assertEqual(json.loads(confirm("--json").out)["outcome"], "none")

    def test_what_watches_has_let_go_of_the_lock(self):
        """However late it comes to close what it was given."""
        slowly = ("strace", "-DDD", "-f", "-o", "/dev/null", "-e", "trace=close_range",
                  "-e", "inject=close_range:delay_enter=2000000")
        process = subprocess.Popen([*slowly, "/quenbyctl", "apply", "--confirm", "100", "tariff-add",
                                    str(s.GIVEN)], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.assertEqual(process.wait(30), 0)
        self.assertEqual(confirm(), s.Result(0, "confirmed\n", ""))
        a.settle()

    def test_what_is_kept_is_nobody_elses(self):
        self.begin()
        self.assertEqual(KEPT.stat().st_mode & 0o7777, 0o700)
        self.assertEqual((KEPT / "tc_tariff.ini").read_text(), OLD)

    def test_no_other_change_meanwhile(self):
        self.begin()
        for arguments in (["load"], ["--confirm", "5", "load"]):
            result = apply(*arguments)
            self.assertEqual((result.status, result.out), (2, ""))
            self.assertRegex(result.err, r"\Aquenbyctl: a change waits for its confirmation "
                             r'\(tariff-add /given\.ini; \d+ s left\): "quenbyctl confirm" keeps it, '
                             r'"quenbyctl apply --take-back" takes it back\n\Z')
        self.assertEqual(confirm().status, 0)
        self.assertEqual(apply("load").status, 0)

    def test_a_run_of_the_program_meanwhile_is_undone(self):
        self.begin()
        self.succeeds("--tariff-del", "a")
        self.assertEqual(apply("--take-back"), s.Result(0, "taken back\n", ""))
        self.expect_files(OLD)

    def test_outlives_its_session(self):
        process = a.begin("--confirm", "1", "tariff-add", str(s.GIVEN), start_new_session=True)
        self.assertEqual(a.ended(process).status, 0)
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        a.settle()
        self.expect_files(OLD)

    def test_the_command_is_killed_before(self):
        a.write_program(a.MAKE, "sleep 0.3")
        process = a.begin("--confirm", "100", "tariff-add", str(s.GIVEN))
        a.wait_for(a.ran)
        process.kill()
        a.ended(process)
        a.settle()
        self.expect_files(OLD)


class Interrupted(ApplyTest):
    """The router lost its power, or everything was killed: a record is left and nobody watches."""

    def interrupt(self, **changes):
        self.add("--confirm", "100")
        self.end_children()
        record = json.loads((KEPT / "change").read_text()) | changes
        (KEPT / "change").write_text(json.dumps(record))

    def test_a_change_under_way(self):
        self.interrupt(waiting=False)
        text = ("quenbyctl: a change was interrupted (tariff-add /given.ini): "
                '"quenbyctl apply --take-back" takes it back\n')
        self.assertEqual(apply("load"), s.Result(2, "", text))
        self.assertEqual(confirm(), s.Result(2, "", text))
        self.assertEqual(apply("--take-back"), s.Result(0, "taken back\n", ""))
        self.expect_files(OLD)
        self.assertEqual(apply("--take-back"), s.Result(1, "", "quenbyctl: no change waits\n"))

    def test_a_restart_of_the_router(self):
        """Nothing is shaped yet, so the files are all that there is."""
        self.interrupt(boot="another")
        NOTE.unlink()
        a.write_program()
        self.assertEqual(apply("--take-back"), s.Result(0, "taken back\n", ""))
        self.expect_files(OLD)
        self.assertEqual((a.ran(), NOTE.exists()), ([], False))

    def test_a_change_of_another_boot_may_be_confirmed(self):
        self.interrupt(boot="another")
        self.assertIn("the router was restarted meanwhile", apply("load").err)
        self.assertEqual(confirm(), s.Result(0, "confirmed\n", ""))
        self.expect_files(AFTER)

    def test_when_its_time_has_come(self):
        self.interrupt(waiting=False)
        self.assertEqual(apply("--take-back", "--when-due"), s.Result(0, "taken back\n", ""))
        self.expect_files(OLD)
        for _ in range(2):
            self.assertEqual(apply("--take-back", "--when-due"),
                             s.Result(0, "", "quenbyctl: no change waits\n"))

    def test_the_time_is_waited_for(self):
        self.interrupt()
        process = a.begin("--take-back", "--when-due")
        time.sleep(0.2)
        self.assertIsNone(process.poll())
        self.assertEqual(confirm().status, 0)
        self.assertEqual(a.ended(process).status, 0)
        self.expect_files(AFTER)

    def test_a_damaged_record(self):
        self.interrupt()
        (KEPT / "change").write_text("{")
        for result in (apply("load"), confirm(), apply("--take-back")):
            self.assertEqual((result.status, result.out), (2, ""))
            self.assertIn("/config/tc/tc_kept/change is damaged: ", result.err)
        self.assertEqual(s.content(s.TARIFF_FILE), AFTER)
