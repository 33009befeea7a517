#!/usr/bin/env python3
"""Tries the code and command blocks of one page, each by its language:

    blocks.py PAGE BUILD COMPILER [FLAG...]

BUILD is the library's build folder, and the compiler's flags let it find what hosts include.

A comment on the line before a block has another thing done with it:

<!-- file: NAME -->  it is put into a file in the page's own folder
<!-- run -->         its commands are run there, one block after the other, in one shell
<!-- serve -->       likewise, in the background; the next one follows the first line of output
<!-- not checked: WHY -->

A block without a language is output or a drawing, and anything may stand in it.
"""
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
from pathlib import Path
from textwrap import dedent

ROOT = Path(__file__).resolve().parents[2]
BLOCK = re.compile(r'(?:^ *<!-- *(?P<mark>[^\n]*?) *-->\n+)?^ *```(?P<language>[\w+-]*)\n'
                   r'(?P<text>.*?)^ *```$', re.MULTILINE | re.DOTALL)
MARK = re.compile(r'|file: \S+|not checked: .+')
INDENTED = re.compile(r'^    (?:\./run|\S*zvupdate|cmake|ctest) (?:.*\n    )*.*\n', re.MULTILINE)

# What a piece of a host may take for granted.
PIECE = '''#include <ZVUpdate/ZVUpdate.h>
#include <QDebug>
[[maybe_unused]] static void piece{line}([[maybe_unused]] ZVUpdateProc *updater,
                                         [[maybe_unused]] ZVUpdateProcDelegate *host)
{{
#line {line} "{page}"
{block}
}}
'''


class Wrong(Exception):
    pass


def command(complaint, *arguments, **options):
    done = subprocess.run(arguments, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          stdin=subprocess.DEVNULL, check=False, **options)
    if done.returncode != 0:
        raise Wrong(f'{complaint}:\n{done.stdout}')
    return done.stdout


class Page:
    def __init__(self, path, build, compiler, folder):
        self.path, self.build, self.compiler, self.folder = path, build, compiler, folder
        self.line, self.helps, self.pieces, self.script = 0, {}, '', []

    def check(self):
        text, count = self.path.read_text(), 0
        for match in BLOCK.finditer(text):
            mark, language = match['mark'] or '', match['language']
            self.line = text.count('\n', 0, match.start('text')) + 1
            if not MARK.fullmatch(mark) and (mark not in ('run', 'serve') or language != 'sh'):
                raise Wrong(f'"{mark}" is no mark for this block')
            if language and not mark.startswith('not checked: '):
                count += 1
                self.take(mark, language, dedent(match['text']))
        self.line = 0  # What fails below names its place itself.
        rest = BLOCK.sub('', text)
        if '```' in rest:
            raise Wrong('there is a block that is not understood: ' + rest[rest.index('```'):][:80])
        for match in INDENTED.finditer(rest):
            count += 1
            self.check_sh(dedent(match[0]))
        self.compile(self.pieces)
        if self.script:
            self.run()
        return count

    def take(self, mark, language, block):
        if mark.startswith('file: '):  # Tried by what is run.
            file = self.folder / mark.removeprefix('file: ')
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(block)
        elif language == 'sh':
            self.check_sh(block)
            if mark == 'run':
                self.script.append(block)
            elif mark == 'serve':
                self.script.append(f'exec {{served}}< <(exec {block.strip()})\npids+=" $!"\n'
                                   'read -r -t 30 -u "$served"\n')
        elif language == 'cpp' and '#include' in block:
            self.compile(block)
        elif language == 'cpp':
            self.pieces += PIECE.format(line=self.line, page=self.path, block=block)
        elif language == 'cmake':
            self.configure(block)
        elif language == 'json':
            json.loads(block)
        elif language == 'python':
            compile(block, self.path, 'exec')
        else:
            raise Wrong(f'nothing tries "{language}"; teach {Path(__file__).name} to')

    def compile(self, code):
        (self.folder / 'block.cpp').write_text(code)
        command('does not compile', *self.compiler, *'-std=c++20 -fsyntax-only -fPIC'.split(),
                '-Wall', '-Werror', str(self.folder / 'block.cpp'))

    def configure(self, block):
        """Configures a project that has the block and an executable "app"."""
        project = self.folder / 'cmake-block'
        (project / 'third-party').mkdir(parents=True, exist_ok=True)
        if not (project / 'main.cpp').exists():
            (project / 'third-party/zvupdate').symlink_to(ROOT)
            (project / 'main.cpp').write_text('int main() {}\n')
        (project / 'CMakeLists.txt').write_text(
            'cmake_minimum_required(VERSION 3.21)\nproject(block LANGUAGES CXX)\n'
            f'add_executable(app main.cpp)\n{block}')
        command('cannot be configured', 'cmake', '--fresh', '-S', str(project), '-B',
                str(project / 'build'), f'-DZVUpdate_DIR={self.build}')

    def check_sh(self, block):
        """Whether bash can read it, and our programs know their commands and options in it."""
        command('is not valid for bash', 'bash', '-n', '-c', block)
        for line in re.split(r'\n|&&|\| |; ', block.replace('\\\n', ' ')):
            words = shlex.split(line, comments=True) + ['', '']
            program = words[0].rsplit('/', 1)[-1]
            if words[0] == './run':
                self.look_up(words[1:2], str(ROOT / 'run'), 'help')
            elif re.fullmatch(r'zvupdate(-apply|-service|-publish|-window)?', program):
                path = str(self.build / 'bin' / program)
                to_command = [words[1]] if 'Commands:' in self.help(path, '--help') else []
                self.look_up([word for word in words if word.startswith('--')], path,
                             *(word for word in to_command if not word.startswith('-')), '--help')
            elif '--preset' in words:
                name = f'"name": "{words[words.index("--preset") + 1]}"'
                if name not in (ROOT / 'CMakePresets.json').read_text():
                    raise Wrong(f'there is no preset with {name}')

    def help(self, *help_command):
        if help_command not in self.helps:
            self.helps[help_command] = command('is no command', *help_command)
        return self.helps[help_command]

    def look_up(self, words, *help_command):
        for word in words:
            name = re.escape(word.split('=')[0])
            if not re.search(rf'(^|[\s,]){name}(?![\w-])', self.help(*help_command)):
                raise Wrong(f'{" ".join(help_command)} does not know "{word}"')

    def run(self):
        environment = {'HOME': str(self.folder), 'CXX': self.compiler[0],
                       'ZVUpdate_DIR': str(self.build),
                       'PATH': f'{self.build}/bin:{os.environ["PATH"]}'}
        start = ('set -eux -o pipefail\npids=""\n'
                 'trap \'kill $pids $(jobs -p) 2>/dev/null || true; wait\' EXIT\n')
        print(command('the commands fail', 'bash', '-c', start + '\n'.join(self.script),
                      cwd=self.folder, env=environment))


def main():
    path, build, *compiler = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        page = Page(Path(path), Path(build), compiler, Path(folder))
        try:
            print(f'{page.path.name}: {page.check()} blocks')
        except (Wrong, SyntaxError, ValueError) as wrong:
            raise SystemExit(f'{path}:{page.line}: {wrong}') from wrong


if __name__ == '__main__':
    main()
