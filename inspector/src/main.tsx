import './style.css';

import { render } from 'preact';

import { firstNews, start } from './store';
import { App } from './view/app';
import { listenToKeys } from './view/keys';

const page = document.getElementById('page');
if (page) {
    start();
    void firstNews().then(() => {
        listenToKeys();
        page.replaceChildren();
        render(<App />, page);
    });
}
