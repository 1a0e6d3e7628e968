import { defineConfig, globalIgnores } from 'eslint/config';
import tseslint from 'typescript-eslint';

export default defineConfig(
    globalIgnores(['dist']),
    tseslint.configs.strictTypeChecked,
    {
        languageOptions: { parserOptions: { projectService: true } },
        rules: {
            eqeqeq: 'error',
            '@typescript-eslint/restrict-template-expressions': ['error', { allowNumber: true }],
            '@typescript-eslint/no-confusing-void-expression': ['error', { ignoreArrowShorthand: true }],
            // `void signal.value` is how an effect says what it depends on.
            '@typescript-eslint/no-meaningless-void-operator': 'off',
        },
    },
    { files: ['**/*.js', '**/*.mjs'], extends: [tseslint.configs.disableTypeChecked] },
);
