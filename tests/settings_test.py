"""Runs the tests' program with settings in its environment, right ones and wrong ones.
usage: settings_test.py TEST-PROGRAM"""
import os
import subprocess
import sys

RIGHT = {'KVO_HOST_POOL': 'encoder:4:640x480', 'KVO_HOST_PANEL': '1280x720', 'KVO_HOST_PROPERTIES': 'p=4,q=-1',
         'KVO_HOST_FAULTS': 'getIntProperty=9@2', 'KVO_HOST_POLICY': 'tvhw_tests=-1,*=1'}
WRONG = [
    'KVO_HOST_POOL=decoder:5:1x1', 'KVO_HOST_PANEL=0x1', 'KVO_HOST_PROPERTIES=p', 'KVO_HOST_FAULTS=TVHW_VO_Oper=1',
    'KVO_HOST_FAULTS=*=1@0', 'KVO_HOST_POLICY=a=101', 'KVO_HOST_RECLAIM=before:*', 'KVO_HOST_RECLAIM=never:*@1',
    'KVO_HOST_RECLAIM=after:*@0', 'KVO_HOST_RECLAIM=after:writeInputFrme@1', 'KVO_HOST_MISUSE=tell',
    'KVO_HOST_FAULT=TVHW_VO_Open=1', 'KVO_MEDIA_LOG_LEVELS=3', 'KVO_MEDIA_LOG_LEVEL=A:5', 'KVO_MEDIA_LOG_FILE=/nowhere/log']


def run(test, settings):
    ran = subprocess.run([sys.argv[1], '--gtest_also_run_disabled_tests', f'--gtest_filter={test}'], text=True,
                         env={**os.environ, **settings}, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return ran.returncode, ran.stdout


status, said = run('SettingsTest.*', RIGHT)
assert status == 0 and '[  PASSED  ] 1 test' in said, said
for wrong in WRONG:
    status, said = run('none', dict([wrong.split('=', 1)]))
    assert status == 2 and said.startswith(f'{wrong}: ') and said.count('\n') == 1, f'{wrong}: {status}, {said}'
