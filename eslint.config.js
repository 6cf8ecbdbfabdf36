'use strict';
const js = require('@eslint/js');
const globals = require('globals');

module.exports = [
  { ignores: ['build/', 'coverage/', 'prebuilds/', 'node_modules/'] },
  js.configs.recommended,
  {
    files: ['**/*.js', '**/*.cjs'],
    languageOptions: { ecmaVersion: 2022, sourceType: 'commonjs', globals: globals.node },
  },
  {
    files: ['**/*.mjs'],
    languageOptions: { ecmaVersion: 2022, sourceType: 'module', globals: globals.node },
  },
  {
    linterOptions: { reportUnusedDisableDirectives: 'error' },
    rules: {
      'array-callback-return': 'error',
      curly: ['error', 'multi-line'],
      'default-case-last': 'error',
      eqeqeq: 'error',
      'no-await-in-loop': 'off', // steps of a protocol come one after the other
      'no-constructor-return': 'error',
      'no-control-regex': 'off', // wire bytes are below blank
      'no-duplicate-imports': 'error',
      'no-else-return': 'error',
      'no-eval': 'error',
      'no-extend-native': 'error',
      'no-implicit-coercion': 'error',
      'no-implied-eval': 'error',
      'no-lonely-if': 'error',
      'no-new-func': 'error',
      'no-promise-executor-return': 'off', // the short form of a callback in a promise
      'no-return-assign': ['error', 'always'],
      'no-self-compare': 'error',
      'no-shadow': 'error',
      'no-template-curly-in-string': 'error',
      'no-throw-literal': 'error',
      'no-unmodified-loop-condition': 'error',
      'no-unreachable-loop': 'error',
      'no-unused-expressions': 'error',
      'no-unused-vars': ['error', { caughtErrors: 'all', argsIgnorePattern: '^_' }],
      'no-use-before-define': ['error', { functions: false, classes: false, variables: false }],
      'no-useless-return': 'error',
      'no-var': 'error',
      'object-shorthand': 'error',
      'prefer-arrow-callback': 'error',
      'prefer-const': 'error',
      'prefer-promise-reject-errors': 'error',
      'prefer-template': 'off', // short sums read as well
      radix: 'error',
      strict: ['error', 'global'],
    },
  },
];
