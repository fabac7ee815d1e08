#!/bin/sh
# SPDX-License-Identifier: MIT
# catalogues_test.sh parallel|slurm RENDER SBATCH WORK: a catalogue is rendered by two workers, one of whose programs is killed in
# the middle. In the end every file is there, the same as when one program renders them in turn, and a second run changes nothing.
set -eu
. "$(dirname "$0")/../support/waiting.sh"
way=$1 render=$2 sbatch=$3 work=$4
rm -rf "$work"
mkdir -p "$work/source/songs" "$work/source/talks/long"
cd "$work"
started=
trap 'for process in $started; do kill "$process" 2>/dev/null || :; done; wait' EXIT

fail() {
    echo "$1"
    exit 1
}

/usr/bin/python3 - <<'PYTHON'
import random, wave
for number in range(12):
    folder = ("songs", "talks/long", "talks")[number % 3]
    with wave.open(f"source/{folder}/file {number}.wav", "wb") as file:
        file.setnchannels(2), file.setsampwidth(2), file.setframerate(48000)
        file.writeframes(random.Random(number).randbytes(4 * 48000) * 60)
PYTHON
"$render" source --output-dir expected --Settings 1 --reverb 0dB 2>expected.log
files=$(cd expected && find . -type f | LC_ALL=C sort)
[ "$(printf '%s\n' "$files" | wc -l)" -eq 12 ]

# The program, which one file kills at its first turn, when it has begun to write and has not ended.
cat >render <<SCRIPT
#!/bin/sh
case "\$*" in
*'file 7.wav'*) mkdir "$work/killed" 2>/dev/null || exec "$render" "\$@" ;;
*) exec "$render" "\$@" ;;
esac
for attempt in 1 2 3 4 5 6 7 8 9 10; do
    "$render" "\$@" &
    while kill -0 \$! 2>/dev/null; do
        ls -A "$work/target/talks/long" 2>/dev/null | grep -q '^\.quorel' && kill -9 \$!
    done
    wait \$!
    result=\$?
    [ \$result -ne 137 ] || { touch "$work/killed/once"; exit 137; }
    rm -f "$work/target/talks/long/file 7.wav"
done
exit 1
SCRIPT
chmod +x render

in_parallel() {
    (cd source && find . -name '*.wav') | LC_ALL=C sort |
        parallel --will-cite --retries 3 --ssh "$work/ssh" -S 1/one,1/two --wd "$work" \
            "$work/render" source/{} --output-dir target/{//} --Settings 1 --reverb 0dB
}

in_slurm() {
    sbatch --wait --chdir="$work" --output="$work/task_%a.log" --open-mode=append --array=1-2 "$sbatch" source target \
        --Settings 1 --reverb 0dB
}

case $way in
parallel)
    # Both hosts are this one: a login that runs the command at once.
    printf '#!/bin/sh\nwhile [ "${1#-}" != "$1" ]; do shift; done\nshift\n[ "$1" != -- ] || shift\nexec sh -c "$*"\n' >ssh
    chmod +x ssh
    export SHELL=/bin/sh # without one, as under a service, parallel tells no error and starts nothing
    run=in_parallel
    ;;
slurm)
    node=$(hostname -s)
    user=$(id -un)
    set -- $(/usr/bin/python3 -c '
import socket
ends = [socket.socket() for _ in range(2)]
for end in ends:
    end.bind(("127.0.0.1", 0))
print(*[end.getsockname()[1] for end in ends])')
    mkdir state spool
    cat >slurm.conf <<CONF
ClusterName=one
SlurmctldHost=$node(127.0.0.1)
SlurmctldPort=$1
SlurmdPort=$2
AuthType=auth/none
CredType=cred/none
SlurmUser=$user
SlurmdUser=$user
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd.pid
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
SelectType=select/cons_res
SelectTypeParameters=CR_Core
ReturnToService=2
NodeName=$node NodeAddr=127.0.0.1 CPUs=2 RealMemory=500 State=UNKNOWN
PartitionName=all Nodes=$node Default=YES MaxTime=INFINITE State=UP
CONF
    echo CgroupPlugin=cgroup/v1 >cgroup.conf # unused; the other one wants a mounted file system before it is
    export SLURM_CONF="$work/slurm.conf" QUOREL_RENDER="$work/render"
    PATH=$PATH:/usr/sbin
    slurmctld -D >slurmctld.log 2>&1 &
    started=$!
    slurmd -D >slurmd.log 2>&1 &
    started="$! $started"
    ready() { sinfo --noheader --format=%t 2>/dev/null | grep -q '^idle'; }
    waits_for 60 ready
    run=in_slurm
    ;;
esac

result=0
$run >first.log 2>&1 || result=$?
[ -e killed/once ] || fail "no program was killed: $(cat first.log)"
if [ "$way" = slurm ]; then # the task of the killed program tells that, and the same line again does what is missing
    [ $result -eq 2 ] || fail "the run with a killed program ended with $result"
    $run >second.log 2>&1 || fail "the second run failed"
else
    [ $result -eq 0 ] || fail "the run with a killed program ended with $result"
fi
[ "$(cd target && find . -type f | LC_ALL=C sort)" = "$files" ] || fail "files are missing, or too many are there"
diff -r expected target || fail "the files are others than those of one program"
touch -d '1 second ago' before
find target -type f -exec touch -d '1 hour' {} + # so that writing one anew would show
$run >again.log 2>&1 || fail "the run without work failed"
[ -z "$(find target -type f ! -newer before)" ] || fail "a finished file was rendered again"
[ -z "$(find target -type f ! -newermt 'now + 30 minutes')" ] || fail "a finished file was rendered again"
