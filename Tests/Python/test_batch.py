import os
import signal
import subprocess
import sys

import pytest

import orbtex.batch

OPTIONS = {"format": "ETC2_RGB", "quality": 2, "ext": ".ktx"}


@pytest.fixture(scope="module")
def local_run(photos, tmp_path_factory):
    """The photos converted here, once: the bytes every other run must write."""
    out = tmp_path_factory.mktemp("local")
    results = orbtex.batch.convert(photos, out, OPTIONS, jobs=2)
    assert not [r for r in results if r.error]
    return {os.path.basename(r.output): open(r.output, "rb").read() for r in results}


def written(results):
    return {os.path.basename(r.output): open(r.output, "rb").read() for r in results if not r.error}


def test_module_command_reports_bad_files_and_converts_the_rest(photos, local_run, tmp_path):
    bad = tmp_path / "broken.png"
    bad.write_bytes(b"\x89PNG but no more")
    command = [sys.executable, "-m", "orbtex", "convert", *photos[:3], str(bad), "-o", str(tmp_path / "out"),
               "--format", "ETC2_RGB", "--quality", "2", "--ext", "ktx"]
    done = subprocess.run(command, capture_output=True, text=True)
    assert done.returncode == 1 and f"{bad}: not a readable image" in done.stderr
    assert sorted(os.listdir(tmp_path / "out")) == ["photo00.ktx", "photo01.ktx", "photo02.ktx"]
    for name in os.listdir(tmp_path / "out"):
        assert (tmp_path / "out" / name).read_bytes() == local_run[name]


def test_dask_cluster_writes_the_local_bytes_and_survives_a_killed_worker(photos, local_run, tmp_path):
    distributed = pytest.importorskip("distributed")
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None,
                                  silence_logs=50) as cluster, distributed.Client(cluster) as client:
        bad = tmp_path / "broken.orb"
        bad.write_bytes(b"ORB\x03 but truncated")
        seen = []
        results = orbtex.batch.convert(photos + [str(bad)], tmp_path / "paths", OPTIONS, client=client,
                                       progress=lambda result, done, total: seen.append((done, total)))
        assert written(results) == local_run and seen[-1] == (13, 13) and len(seen) == 13
        assert results[-1].kind == "BadFileError" and "truncated" in results[-1].error
        assert {r.worker for r in results[:-1]} == set(client.scheduler_info()["workers"])

        pids = client.run(os.getpid)
        killed = []

        def kill_the_other(result, done, total):
            if not killed:
                victim = next(address for address in pids if address != result.worker)
                os.kill(pids[victim], signal.SIGKILL)
                killed.append((victim, done))

        results = orbtex.batch.convert(photos, tmp_path / "bytes", dict(OPTIONS, transfer="bytes"), client=client,
                                       progress=kill_the_other)
        assert written(results) == local_run
        # The task the victim had in hand was run again by another worker.
        victim = killed[0][0]
        assert sum(r.worker == victim for r in results) <= 1
