#!/usr/bin/env python3
"""Deliberate breaks of the product code, and which tests catch each.

Every mutant is one small, plausible fault: an exact text that must occur
exactly once in its file, and the text that replaces it. For each mutant the
harness applies it in the tree, rebuilds incrementally, runs the whole ctest
suite and records the tests that fail; the original file is always put back
(also on Ctrl-C, SIGTERM or an exception), and the build is brought back in
line with the sources at the end.

    python3 scripts/mutants.py --tree DIR [--build DIR] [--only M03,M07]
                               [--json OUT] [--markdown OUT]

Tests that already fail without any mutant are reported once and never count
as catching a mutant (skip that unmutated run with --no-reference).
"""

import argparse
import json
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ET

# ---------------------------------------------------------------------------
# The mutants. `tsan`: the fault may only show under ThreadSanitizer, so the
# thread-sanitized stress and lock tests run as well.

MUTANTS = [
    dict(
        id="M01", subsystem="exports / handle checks", file="applet/Exports.cpp",
        description="wrong error number: a handle without an instance answers the parameter count 0",
        old="return w ? w->Fg_getParameterCount() : PGN_ERR_NO_INSTANCE;",
        new="return w ? w->Fg_getParameterCount() : 0;",
    ),
    dict(
        id="M02", subsystem="exports / handle checks", file="applet/Exports.cpp",
        description="missing clear: a 32-bit value read into a 64-bit destination keeps stale upper bits",
        old="    if ((type == FG_PARAM_TYPE_INT64_T || type == FG_PARAM_TYPE_UINT64_T) && value)\n"
            "        *static_cast<uint64_t*>(value) = 0;\n",
        new="",
    ),
    dict(
        id="M03", subsystem="information query", file="applet/Info.cpp",
        description="wrong condition: a process channel/camera index pair is accepted when either is 0",
        old="return arg1 == 0 && arg2 == 0 ? 0 : PGN_ERR_INVALID_ARGUMENT;",
        new="return arg1 == 0 || arg2 == 0 ? 0 : PGN_ERR_INVALID_ARGUMENT;",
    ),
    dict(
        id="M04", subsystem="parameter-info registry", file="wrapper/parameterInfo.cpp",
        description="missing increment: a nested group gets its parent's depth",
        old="group->depth = parent->depth + 1;",
        new="group->depth = parent->depth;",
    ),
    dict(
        id="M05", subsystem="dispatch", file="applet/Dispatch.cpp",
        description="wrong error number: a null value is refused as out of range",
        old="if (!value) return w.setError(PGN_ERR_INVALID_ARGUMENT);",
        new="if (!value) return w.setError(PGN_ERR_OUT_OF_RANGE);",
    ),
    dict(
        id="M06", subsystem="dispatch", file="applet/Dispatch.cpp",
        description="skipped lock: dispatched calls run without the parameter lock",
        tsan=True,
        old="    CriticalSectionGuard guard(&w.mParameterLock);\n    int result = 0;",
        new="    int result = 0;",
    ),
    dict(
        id="M07", subsystem="design register access", file="applet/DesignRegisters.cpp",
        description="wrong sign test: a register write refused by the runtime (negative code) is swallowed",
        old="        setUnwrappedParameterWithType(id, value, static_cast<unsigned int>(index), type);\n"
            "    if (result != 0 && throwOnError) pelagon::fail(result);",
        new="        setUnwrappedParameterWithType(id, value, static_cast<unsigned int>(index), type);\n"
            "    if (result > 0 && throwOnError) pelagon::fail(result);",
    ),
    dict(
        id="M08", subsystem="region of interest", file="applet/AcquisitionPath.cpp",
        description="off-by-one limit: a width that exactly fills the line beside the x offset is refused",
        old="if (w < kMinWidth || w > kMaxWidth - std::min(cache_FG_XOFFSET_P0, kMaxWidth)) fail(PGN_ERR_OUT_OF_RANGE);",
        new="if (w < kMinWidth || w >= kMaxWidth - std::min(cache_FG_XOFFSET_P0, kMaxWidth)) fail(PGN_ERR_OUT_OF_RANGE);",
    ),
    dict(
        id="M09", subsystem="region of interest", file="applet/AcquisitionPath.cpp",
        description="wrong register: the height goes to the first buffer's y length twice, never the second's",
        old="set_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_YLength(&h, 0, FG_PARAM_TYPE_UINT32_T, true);",
        new="set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_YLength(&h, 0, FG_PARAM_TYPE_UINT32_T, true);",
    ),
    dict(
        id="M10", subsystem="setters (cache rollback)", file="applet/SetterPattern.h",
        description="missing rollback: a setter whose register write fails keeps the new value in its cache",
        old="        const T old = cache;\n        cache = value;\n        try {\n            apply();\n"
            "        } catch (int) {\n            cache = old;\n            throw;\n        }",
        new="        cache = value;\n        apply();",
    ),
    dict(
        id="M11", subsystem="camera simulator", file="applet/CameraSimulator.cpp",
        description="wrong rounding: widths and gaps are rounded down to whole words instead of up",
        old="uint64_t roundUpToWord(uint64_t pixels) { return (pixels + kWord - 1) / kWord * kWord; }",
        new="uint64_t roundUpToWord(uint64_t pixels) { return pixels / kWord * kWord; }",
    ),
    dict(
        id="M12", subsystem="camera simulator", file="applet/CameraSimulator.cpp",
        description="crossed registers: the frame gap register gets the whole frame instead of the active lines",
        old="FrameGap_Number, height);",
        new="FrameGap_Number, height + gap);",
    ),
    dict(
        id="M13", subsystem="board status", file="applet/BoardStatus.cpp",
        description="wrong type: the DMA status is read as a 64-bit value over the caller's 32 bits",
        old="getUnwrappedParameterWithType(FG_RT_DMASTATUS, value, 0, FG_PARAM_TYPE_UINT32_T);",
        new="getUnwrappedParameterWithType(FG_RT_DMASTATUS, value, 0, FG_PARAM_TYPE_UINT64_T);",
    ),
    dict(
        id="M14", subsystem="trigger mode/state", file="applet/TriggerModeState.cpp",
        description="missing step: an immediate stop of the running generator leaves the outputs on",
        old="{{kAsyncStop, {kOutputsOff, kGeneratorOff}}, {kSyncStop, {kGeneratorOff}}}},",
        new="{{kAsyncStop, {kGeneratorOff}}, {kSyncStop, {kGeneratorOff}}}},",
    ),
    dict(
        id="M15", subsystem="trigger mode/state", file="applet/TriggerModeState.cpp",
        description="missing access change: software pulses stay writable in external trigger mode",
        old="if (RegisterInfo* record = publishedRecord(id::FG_SENDSOFTWARETRIGGER)) record->accessFlags = 1;",
        new="",
    ),
    dict(
        id="M16", subsystem="trigger rate / queue / software trigger", file="applet/TriggerRate.cpp",
        description="off-by-one register value: the period register gets the ticks without its offset",
        old="static_cast<uint32_t>(ticks - kPeriodOffset));",
        new="static_cast<uint32_t>(ticks));",
    ),
    dict(
        id="M17", subsystem="trigger rate / queue / software trigger", file="applet/TriggerRate.cpp",
        description="missing check: software pulses are sent while the trigger is stopped",
        old="if (cache_FG_TRIGGERSTATE_P0 != kActive) fail(PGN_ERR_TRIGGER_NOT_ACTIVE);",
        new="",
    ),
    dict(
        id="M18", subsystem="trigger input", file="applet/TriggerInput.cpp",
        description="off-by-one register value: the input downscale phase is written counting from 0",
        old="PELAGON_TRIGGER_REG(TriggerCam0_Downscale_Downscale_SelectedPulse), p + 1);",
        new="PELAGON_TRIGGER_REG(TriggerCam0_Downscale_Downscale_SelectedPulse), p);",
    ),
    dict(
        id="M19", subsystem="pulse generators / outputs", file="applet/TriggerOutputs.cpp",
        description="off-by-one limit: the largest pulse form downscale (7) is refused",
        old="n > kMaxPulseFormDownscale) fail(PGN_ERR_OUT_OF_RANGE);",
        new="n >= kMaxPulseFormDownscale) fail(PGN_ERR_OUT_OF_RANGE);",
    ),
    dict(
        id="M20", subsystem="pulse generators / outputs", file="applet/TriggerOutputs.cpp",
        description="wrong condition: after an immediate stop the camera outputs ignore new selections too",
        old="if (output >= kBoardOutput0 && cache_FG_TRIGGERSTATE_P0 == kAsyncStop) return;",
        new="if (cache_FG_TRIGGERSTATE_P0 == kAsyncStop) return;",
    ),
    dict(
        id="M21", subsystem="lookup-table processing", file="applet/ImageProcessing.cpp",
        description="wrong formula: gamma used as the exponent instead of its inverse",
        old="gamma != 0.0 ? 1.0 / gamma : std::copysign",
        new="gamma != 0.0 ? gamma : std::copysign",
    ),
    dict(
        id="M22", subsystem="lookup-table processing", file="applet/ImageProcessing.cpp",
        description="off-by-one: invert mirrors around the table size instead of the largest entry",
        old="if (invert) entry = int64_t{kLutMax} - entry;",
        new="if (invert) entry = int64_t{kLutSize} - entry;",
    ),
    dict(
        id="M23", subsystem="lookup-table processing", file="applet/ImageProcessing.cpp",
        description="missing clamp: entries above the 12-bit range are not limited to 4095",
        old="entry < 0 ? 0 : entry > kLutMax ? kLutMax : entry",
        new="entry < 0 ? 0 : entry",
    ),
    dict(
        id="M24", subsystem="white balance", file="applet/ImageProcessing.cpp",
        description="wrong register: the blue gain is written to the red coefficient",
        old="set_zu_param_Device1_Process0_Bayer_White_BlueCoefficient",
        new="set_zu_param_Device1_Process0_Bayer_White_RedCoefficient",
    ),
    dict(
        id="M25", subsystem="configuration file parser", file="parsers/Fg_ConfigFileParser.cpp",
        description="wrong key match: a key also matches a longer key it is the prefix of",
        old="if (std::strncmp(line.text, key, keyLength) != 0 || line.text[keyLength] != '=') continue;",
        new="if (std::strncmp(line.text, key, keyLength) != 0) continue;",
    ),
    dict(
        id="M26", subsystem="configuration save/load", file="applet/Configuration.cpp",
        description="wrong file section: parameters are saved under port B, where loading never looks",
        old="parser.writeConfigFileByPort(0);",
        new="parser.writeConfigFileByPort(1);",
    ),
    dict(
        id="M27", subsystem="configuration save/load", file="applet/configuration.def",
        description="wrong load rule: the red white-balance gain is cached on load but never programmed",
        old="PELAGON_CONFIG_KEY(FG_SCALINGFACTOR_RED, Double, Cache, Restored)",
        new="PELAGON_CONFIG_KEY(FG_SCALINGFACTOR_RED, Double, Cache, CachedOnly)",
    ),
    dict(
        id="M28", subsystem="LUT file parser", file="parsers/Fg_LutFileParser.cpp",
        description="wrong file key: tables are saved with 'nrOfElement', which loading does not find",
        old='writeIntKey("nrOfElements", static_cast<int>(lut.nrOfElements), "=");',
        new='writeIntKey("nrOfElement", static_cast<int>(lut.nrOfElements), "=");',
    ),
    dict(
        id="M29", subsystem="XML description", file="wrapper/ParameterInfoBuilderXML.cpp",
        description="wrong access mode: read-only parameters are described as write-only",
        old='readable ? (writable ? "RW" : "RO") : (writable ? "WO" : nullptr);',
        new='readable ? (writable ? "RW" : "WO") : (writable ? "WO" : nullptr);',
    ),
    dict(
        id="M30", subsystem="locks (support)", file="support/Locks.cpp",
        description="missing owner check: an unlock by a thread that does not hold the mutex lowers the count",
        old="    if (m_count.load(std::memory_order_relaxed) != 0 &&\n"
            "        pthread_equal(m_owner.load(std::memory_order_relaxed), pthread_self())) {",
        new="    if (m_count.load(std::memory_order_relaxed) != 0) {",
    ),
    dict(
        id="M31", subsystem="log (support)", file="support/Fg_Log.cpp",
        description="wrong format: error lines lose their separator",
        old='writeLine("varionixIV::Error >> %s;\\n", text(message));',
        new='writeLine("varionixIV::Error %s;\\n", text(message));',
    ),
    dict(
        id="M32", subsystem="virtual board image path", file="vboard/core/image_path.cpp",
        description="swapped gains: red sites take the blue gain and blue sites the red one",
        old="return colour == kRed ? 0 : colour == kBlue ? 2 : 1;",
        new="return colour == kRed ? 2 : colour == kBlue ? 0 : 1;",
    ),
    dict(
        id="M33", subsystem="virtual board acquisition", file="vboard/core/acquisition.cpp",
        description="off-by-one: frames are delivered to the ring slot after their own",
        old="const auto slot = static_cast<unsigned>((number - 1) % buffers_->count);",
        new="const auto slot = static_cast<unsigned>(number % buffers_->count);",
    ),
    dict(
        id="M34", subsystem="virtual board acquisition", file="vboard/core/acquisition.cpp",
        description="missing check: frames of a discarded output path are still delivered",
        old="if (!s.selected(sequence) || s.discarded) return;",
        new="if (!s.selected(sequence)) return;",
    ),
    dict(
        id="M35", subsystem="tool", file="tools/pelagon/frame_output.cpp",
        description="swapped alignment: 48-bit frames are shifted when left aligned instead of when right aligned",
        old="out.bits = frame.info.leftAligned ? 16 : 12;",
        new="out.bits = frame.info.leftAligned ? 12 : 16;",
    ),
]

# ---------------------------------------------------------------------------

JOB_TIMEOUT = 3 * 3600  # seconds: a build or a whole ctest run that takes longer is stuck
TSAN_TARGETS = ["stress_tests", "support_tests"]
TSAN_TESTS = "^(Stress|SupportLocksUnderLoad)"


class Stopped(Exception):
    """SIGTERM, turned into an exception so that every finally block runs."""


def on_sigterm(signum, frame):
    raise Stopped(f"signal {signum}")


def log(text):
    print(text, flush=True)


def run(cmd, timeout=JOB_TIMEOUT, env=None):
    """Runs cmd; returns (exit code, combined output). A stuck job counts as failed."""
    try:
        proc = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              errors="replace", timeout=timeout, env=env)
        return proc.returncode, proc.stdout
    except subprocess.TimeoutExpired as e:
        out = e.stdout.decode(errors="replace") if isinstance(e.stdout, bytes) else (e.stdout or "")
        return -1, out + f"\n[timed out after {timeout} s]\n"


def tail(text, lines=40):
    return "\n".join(text.splitlines()[-lines:])


def configure(tree, build, extra=()):
    if os.path.isfile(os.path.join(build, "CMakeCache.txt")):
        return
    log(f"configuring {build}")
    rc, out = run(["cmake", "-S", tree, "-B", build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DPELAGON_WERROR=ON",
                   "-DPELAGON_BUILD_BENCH=OFF", *extra])
    if rc != 0:
        sys.exit(f"configuring {build} failed:\n{tail(out)}")


def build_tree(build, targets=()):
    cmd = ["cmake", "--build", build, "-j2"]
    if targets:
        cmd += ["--target", *targets]
    return run(cmd)


FAILED_LINE = re.compile(r"^\s*\d+\s+-\s+(.*?)\s+\(([^()]*)\)\s*$")


def test_name(name):
    """A test's name without the parameter ctest appends ("  # GetParam() = ..."),
    which may print addresses and so differ from one build to the next."""
    return name.split("  # GetParam()")[0].strip()


def failing_tests(build, regex=None):
    """Runs ctest in build; returns the names of the tests that did not pass."""
    with tempfile.TemporaryDirectory(prefix="mutants-") as tmp:
        junit = os.path.join(tmp, "junit.xml")
        cmd = ["ctest", "--test-dir", build, "-j2", "--timeout", "120", "--output-junit", junit]
        env = None
        if regex:
            cmd += ["-R", regex]
            # As the tsan test preset runs them: the first race ends the test.
            env = dict(os.environ, TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1")
        rc, out = run(cmd, env=env)
        failed = set()
        # ctest's own summary: "  12 - Suite.Name (Failed)", "(Timeout)", "(SEGFAULT)", "(Not Run)" ...
        in_summary = False
        for line in out.splitlines():
            if line.startswith("The following tests FAILED:"):
                in_summary = True
                continue
            if in_summary:
                m = FAILED_LINE.match(line)
                if m:
                    failed.add(m.group(1))
                elif line.strip():
                    in_summary = False
        if os.path.isfile(junit):
            try:
                for case in ET.parse(junit).getroot().iter("testcase"):
                    if case.get("status") in ("fail", "notrun") or case.find("failure") is not None:
                        failed.add(case.get("name"))
            except ET.ParseError:
                pass
        failed = {test_name(name) for name in failed}
        if rc != 0 and not failed:
            # ctest itself failed (or was stopped) without naming a test.
            failed.add("(ctest: " + (tail(out, 3).replace("\n", " ") or f"exit {rc}") + ")")
        return failed


def check_applies(tree, mutant):
    path = os.path.join(tree, mutant["file"])
    try:
        with open(path, encoding="utf-8") as f:
            text = f.read()
    except OSError as e:
        return None, f"cannot read {mutant['file']}: {e.strerror}"
    n = text.count(mutant["old"])
    if n != 1:
        return None, f"the old text occurs {n} times in {mutant['file']}"
    return text, None


def run_mutant(args, mutant, reference, reference_tsan):
    result = dict(id=mutant["id"], subsystem=mutant["subsystem"], file=mutant["file"],
                  description=mutant["description"], tsan=bool(mutant.get("tsan")))
    started = time.monotonic()
    original, problem = check_applies(args.tree, mutant)
    if original is None:
        result.update(status="does not apply", caught=False, tests=[], count=0, detail=problem)
        return result
    path = os.path.join(args.tree, mutant["file"])
    # Written back byte for byte, whatever happens in between.
    with open(path, "rb") as f:
        original_bytes = f.read()
    try:
        with open(path, "w", encoding="utf-8") as f:
            f.write(original.replace(mutant["old"], mutant["new"], 1))
        rc, out = build_tree(args.build)
        if rc != 0:
            result.update(status="does not compile", caught=False, tests=[], count=0, detail=tail(out))
            return result
        failed = failing_tests(args.build) - reference
        if mutant.get("tsan"):
            tsan_build = args.build + "-tsan"
            rc, out = build_tree(tsan_build, TSAN_TARGETS)
            if rc != 0:
                result.update(status="does not compile", caught=False, tests=[], count=0,
                              detail="ThreadSanitizer build: " + tail(out))
                return result
            failed |= {name + " [tsan]" for name in failing_tests(tsan_build, TSAN_TESTS) - reference_tsan}
        tests = sorted(failed)
        result.update(status="caught" if tests else "not caught", caught=bool(tests), tests=tests,
                      count=len(tests))
        return result
    finally:
        with open(path, "wb") as f:
            f.write(original_bytes)
        result["seconds"] = round(time.monotonic() - started, 1)


def markdown(results, meta):
    def cell(text):
        return str(text).replace("|", "\\|").replace("\n", " ")

    lines = [
        "# Mutation baseline",
        "",
        f"Tree `{meta['tree']}` at `{meta['commit']}`; {meta['caught']} of {meta['applied']} applied mutants "
        f"caught; one run took {meta['minutes']} minutes.",
        "",
        "| id | subsystem | file | fault | caught | tests | some of the catching tests |",
        "|----|-----------|------|-------|--------|------:|----------------------------|",
    ]
    for r in results:
        caught = "yes" if r["caught"] else ("no" if r["status"] == "not caught" else r["status"])
        some = ", ".join(f"`{t}`" for t in r["tests"][:3]) + (" ..." if r["count"] > 3 else "")
        lines.append(f"| {r['id']} | {cell(r['subsystem'])} | `{r['file']}` | {cell(r['description'])} | "
                     f"{caught} | {r['count']} | {cell(some)} |")
    if meta["reference_failures"]:
        lines += ["", "Tests failing without any mutant (never counted as catching): " +
                  ", ".join(f"`{t}`" for t in meta["reference_failures"])]
    return "\n".join(lines) + "\n"


def print_table(results):
    log("")
    log(f"{'id':4} {'subsystem':40} {'status':17} {'tests':>5}  first catching test")
    for r in results:
        first = r["tests"][0] if r["tests"] else r.get("detail", "")
        log(f"{r['id']:4} {r['subsystem'][:40]:40} {r['status']:17} {r['count']:5}  {first[:70]}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--tree", required=True, help="source tree the mutants are applied in")
    parser.add_argument("--build", help="build directory (default: TREE/build/mutants)")
    parser.add_argument("--only", help="comma-separated mutant ids, e.g. M03,M07")
    parser.add_argument("--json", help="write the results as JSON here")
    parser.add_argument("--markdown", help="write the results as a Markdown table here")
    parser.add_argument("--list", action="store_true", help="list the mutants and whether they apply, then stop")
    parser.add_argument("--no-reference", action="store_true",
                        help="skip the unmutated test run that finds tests failing anyway")
    args = parser.parse_args()
    args.tree = os.path.abspath(args.tree)
    args.build = os.path.abspath(args.build or os.path.join(args.tree, "build", "mutants"))

    selected = MUTANTS
    if args.only:
        wanted = [m.strip() for m in args.only.split(",") if m.strip()]
        known = {m["id"] for m in MUTANTS}
        unknown = [m for m in wanted if m not in known]
        if unknown:
            sys.exit("unknown mutant ids: " + ", ".join(unknown))
        selected = [m for m in MUTANTS if m["id"] in wanted]

    if args.list:
        for m in selected:
            _, problem = check_applies(args.tree, m)
            log(f"{m['id']:4} {m['file']:40} {'applies' if problem is None else problem}  {m['description']}")
        return 0

    signal.signal(signal.SIGTERM, on_sigterm)
    started = time.monotonic()
    commit = run(["git", "-C", args.tree, "rev-parse", "HEAD"])[1].strip()
    use_tsan = any(m.get("tsan") for m in selected)
    results = []
    reference, reference_tsan = set(), set()
    try:
        configure(args.tree, args.build)
        if use_tsan:
            configure(args.tree, args.build + "-tsan", ["-DPELAGON_THREAD_SANITIZE=ON"])
        if not args.no_reference:
            log("building and testing the unmutated tree")
            rc, out = build_tree(args.build)
            if rc != 0:
                sys.exit("the unmutated tree does not build:\n" + tail(out))
            reference = failing_tests(args.build)
            if use_tsan:
                rc, out = build_tree(args.build + "-tsan", TSAN_TARGETS)
                if rc != 0:
                    sys.exit("the unmutated tree does not build with ThreadSanitizer:\n" + tail(out))
                reference_tsan = failing_tests(args.build + "-tsan", TSAN_TESTS)
            if reference or reference_tsan:
                log("failing without any mutant: " + ", ".join(sorted(reference | reference_tsan)))
        for m in selected:
            log(f"{m['id']} {m['file']}: {m['description']}")
            r = run_mutant(args, m, reference, reference_tsan)
            results.append(r)
            log(f"    {r['status']}" + (f", {r['count']} tests" if r["caught"] else "") + f" ({r['seconds']} s)")
    except (KeyboardInterrupt, Stopped):
        log("stopped; the sources are restored, rebuilding")
    finally:
        # Every mutant's file is back; bring the build in line with the sources.
        build_tree(args.build)
        if use_tsan and os.path.isdir(args.build + "-tsan"):
            build_tree(args.build + "-tsan", TSAN_TARGETS)

    minutes = round((time.monotonic() - started) / 60, 1)
    applied = [r for r in results if r["status"] in ("caught", "not caught")]
    meta = dict(tree=args.tree, commit=commit, build=args.build, minutes=minutes,
                applied=len(applied), caught=sum(r["caught"] for r in applied),
                reference_failures=sorted(reference | {t + " [tsan]" for t in reference_tsan}))
    print_table(results)
    log(f"\n{meta['caught']} of {meta['applied']} applied mutants caught; {minutes} minutes")
    if args.json:
        os.makedirs(os.path.dirname(os.path.abspath(args.json)), exist_ok=True)
        with open(args.json, "w", encoding="utf-8") as f:
            json.dump(dict(meta, mutants=results), f, indent=2)
            f.write("\n")
    if args.markdown:
        os.makedirs(os.path.dirname(os.path.abspath(args.markdown)), exist_ok=True)
        with open(args.markdown, "w", encoding="utf-8") as f:
            f.write(markdown(results, meta))
    return 0 if len(results) == len(selected) else 1


if __name__ == "__main__":
    sys.exit(main())
